/* A line of the trace when the host platform writes it. Standard error is a file meanwhile. */

#include "harness.h"
#include "zel_common_log/trace.h"

namespace bench
{

namespace
{

/** Repeats an action while the trace is diverted. */
template <typename Action> side diverted(const std::string &path, Action action)
{
    return repeat([=] {
        require(std::freopen(path.c_str(), "w", stderr), "standard error cannot be diverted");
        std::setvbuf(stderr, nullptr, _IONBF, 0);
        return action;
    });
}

void add_line(const std::string &kind, const std::string &text, const std::string &where, const std::string &path)
{
    const auto own = [=] { ZEL_PLAIN("query [%s]", text.c_str()); };
    const auto peer = [=] {
        std::fprintf(stderr, "%s %d %c/%s: %s(%d):  query [%s]\n", "2026-11-25 06:34:30.123456", 12345, 'I',
                     "QUILLO_COMMON", __func__, __LINE__, text.c_str());
    };
    add({"trace: one" + kind + " line " + where + " / fprintf", 1.2,
         [=] { return std::pair(diverted(path, own), diverted(path, peer)); }});
}

const group measures([] {
    const std::string text = "UPDATE 'content_info_status' SET status = 1 WHERE sync_id = 123";
    add_line("", text, "to a file", "trace");
    add_line(" long", std::string(4000, 'x'), "to a file", "trace");
    add_line("", text, "to nowhere", "/dev/null");
});

} // namespace

} // namespace bench
