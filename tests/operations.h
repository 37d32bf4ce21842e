// Every operation of the store as a row of one table, and a small world of rows for them to work on. The harnesses that
// break the store on purpose all drive it from here.
#ifndef ZEL_TESTS_OPERATIONS_H
#define ZEL_TESTS_OPERATIONS_H

#include "invocation.h"
#include "store_fixture.h"

#include <algorithm>
#include <span>
#include <string>
#include <vector>

namespace zel_test
{

inline bool is_among(const std::string &text, const std::vector<const char *> &texts)
{
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

struct operation {
    invocation call;
    bool writes;                                 ///< changes rows of the world
    unsigned long long failures;                 ///< bit set of the codes that its contract knows besides success
    std::vector<const char *> memory_lines = {}; ///< what it writes, one of them, beside ZEL_ERR_MEMORY
    /// What is handed out, with success, when a step fails whose failure the contract lets pass for an absent row.
    std::vector<const char *> unseen = {};
    std::vector<const char *> left_behind = {""}; ///< what can be handed out with a failure
    /// For what works in several steps, of which some may have been carried out on a failure: rows that can stand then
    /// besides those of before and after.
    const char *halfway = nullptr;
    std::string name = call.function();

    bool may_fail_with(int code) const
    {
        return code > 0 && code < 64 && (failures >> code & 1) != 0;
    }
};

std::span<const operation> operations();

/// Makes every operation find, change or remove something.
void furnish();

/// The store's file as furnish() left it, to start from again and again.
class world
{
  public:
    /// Fills a new file. Leaves the store closed.
    world();
    /// Puts the file back and opens the store as a new process would: it knows nothing of the schema unless warm.
    void begin(bool warm = false) const;
    /// Whether the file is still as it was put back.
    bool is_untouched() const;
    /// Closes the store, which fails if a statement was not finalized.
    static void end();

  private:
    scripted_clock clock_{1000, 0};
    std::string bytes_;
};

/// All rows, a line each with the name of their table in front, read through a connection of its own that also tests
/// the file's integrity.
std::string stored_rows();

std::vector<std::string> lines_of(const std::string &text);

/// Whether each row of `now` is one of `before` or `after`, and all that those two have in common is there.
bool lies_between(const std::string &now, const std::string &before, const std::string &after);

} // namespace zel_test

#endif
