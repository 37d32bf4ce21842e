// Any file is shown and checked to its end, or refused with a sentence. Nothing of it reaches the terminal as an order.
#include "zel_store.h"

#include <cstdint>
#include <fcntl.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace
{

void expect_letters(const std::string &text)
{
    for (const char letter : text)
        g_assert_true(letter == '\n' || (letter >= ' ' && letter <= '~'));
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string path = std::string(g_get_tmp_dir()) + "/zel-fuzz-store-" + std::to_string(getpid());
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    g_assert_true(write(file, data, size) == static_cast<ssize_t>(size));
    close(file);
    options wanted;
    wanted.store = path;
    wanted.as_json = true;
    wanted.shows_all = true;
    for (outcome (*const look)(const options &) : {show, check})
        try {
            const outcome seen = look(wanted);
            expect_letters(seen.view);
            expect_letters(written(seen.document));
        } catch (const unreadable &error) {
            g_assert_true(*error.what());
        }
    unlink(path.c_str());
    return 0;
}
