/* The cost of the trace when the host platform writes it. Standard error is a file meanwhile. */

#include "zel_common_log/trace.h"
#include "harness.h"
#include "zel_platform.h"

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace bench
{

namespace
{

/** Makes standard error a file until it goes. */
class diverted_trace
{
  public:
    explicit diverted_trace(const std::string &path) : before(dup(STDERR_FILENO))
    {
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        require(before >= 0 && file >= 0, "standard error cannot be diverted");
        dup2(file, STDERR_FILENO);
        close(file);
    }
    ~diverted_trace()
    {
        dup2(before, STDERR_FILENO);
        close(before);
    }
    diverted_trace(const diverted_trace &) = delete;
    diverted_trace &operator=(const diverted_trace &) = delete;

  private:
    int before;
};

/** Repeats an action while the trace is diverted. */
template <typename Action> side diverted(const std::string &path, Action action)
{
    return repeat([=] { return [trace = std::make_shared<diverted_trace>(path), action] { action(); }; });
}

void add_line(const std::string &kind, const std::string &text, const std::string &where, const std::string &path)
{
    add({.name = "trace: one" + kind + " line " + where + " / fprintf",
         .bound = 1.2,
         .make =
             [=] {
                 return sides{diverted(path, [=] { ZEL_PLAIN("query [%s]", text.c_str()); }), diverted(path, [=] {
                                  std::fprintf(stderr, "%c/%s: %s(%d):  query [%s]\n", 'I', "QUILLO_COMMON", __func__,
                                               __LINE__, text.c_str());
                              })};
             },
         .same_lines = false});
}

const group measures([] {
    const std::string text = "UPDATE 'content_info_status' SET status = 1 WHERE sync_id = 123";
    add_line("", text, "to a file", "trace");
    add_line(" long", std::string(4000, 'x'), "to a file", "trace");
    add_line("", text, "to nowhere", "/dev/null");
});

} // namespace

} // namespace bench
