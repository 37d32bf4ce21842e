// Any trace is read to its end, with views that lie in it. A text in a line of the host platform is read as it was
// written.
#include "trace_line.h"
#include "trace_sums.h"
#include "zel_platform_host.h"

#include <cstdint>
#include <glib.h>
#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{

/// A file in memory; the reader opens it anew, from its beginning.
struct memory_file {
    int file = memfd_create("fuzz", MFD_CLOEXEC);
    ~memory_file()
    {
        close(file);
    }
    std::string path() const
    {
        return "/proc/self/fd/" + std::to_string(file);
    }
};

void try_trace(const uint8_t *data, size_t size)
{
    const memory_file trace;
    g_assert_true(write(trace.file, data, size) == static_cast<ssize_t>(size));
    trace_reader reader(trace.path());
    trace_sums sums;
    std::string everything;
    size_t calls = 0;
    sums.on_line = [&](const trace_line &line) {
        g_assert_true(line.whose == owner::LIBRARY && line.number > 0 &&
                      line.function.size() + line.body.size() < size);
        everything = std::string(line.function) + std::string(line.body) + unescaped(line.text);
    };
    sums.on_call = [&](const call &ended) {
        g_assert_true(ended.first <= ended.last && ended.last <= sums.lines && ended.us() >= 0);
        ++calls;
    };
    size_t lines = 0;
    for (; const std::optional<trace_line> line = reader.next(); ++lines)
        sums.add(*line);
    sums.finish();
    long long counted = 0;
    for (const operation &one : sums.operations_by_time())
        counted += one.calls;
    g_assert_true(lines == sums.lines && counted == static_cast<long long>(calls));
    g_assert_true(reader.is_empty() == (size == 0) && sums.failures_by_line().size() <= lines);
}

void try_text(const std::string &text)
{
    const memory_file trace;
    const int standard_error = dup(STDERR_FILENO);
    dup2(trace.file, STDERR_FILENO);
    dlog_print(DLOG_INFO, "QUILLO_COMMON", "%s(%d):  \033[0;36mquery [%s]\033[0;m\n", "f", 1, text.c_str());
    dup2(standard_error, STDERR_FILENO);
    close(standard_error);
    trace_reader reader(trace.path());
    const std::optional<trace_line> line = reader.next();
    g_assert_true(line && line->what == step::STATEMENT && line->is_escaped && line->function == "f");
    g_assert_true(unescaped(line->text) == text);
    g_assert_true(!reader.next());
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    try_trace(data, size);
    try_text(std::string(reinterpret_cast<const char *>(data), size).c_str());
    return 0;
}
