// Calls of the store's operations, written as text, and the table of them, storage/operations.txt.
#ifndef ZEL_TESTS_CALL_H
#define ZEL_TESTS_CALL_H

#include <set>
#include <string>
#include <vector>

namespace zel_test
{

/// Stands in front of every text that a call is given, and is taken out of all that is shown.
inline std::string prefix;
std::string without_prefix(std::string text);
/// A text as calls are written: in quotation marks if it is empty or holds blanks.
std::string shown(const char *text);

/// Told when an operation itself begins and ends, its arguments being read already: for whoever takes its time.
inline void (*at_call)(bool begins) = [](bool) {};

/// How a call went.
struct told {
    int code = 0;
    std::string outputs; ///< a word for each, in their order; "-" for one that was left alone
    std::string records; ///< those of a list, of which the outputs tell the first number only; a line each
};

/// An operation's name without its common head, then the arguments: numbers, texts, NULL, "&" for an output ("&false"
/// for one that holds false, "&urls" for a list of URLs); a record stands in parentheses, its members in their order,
/// and a list of records as one behind the other.
struct call {
    explicit call(const std::string &given);
    /// Reads the arguments, calls, and releases what is handed out.
    told operator()() const;
    /// The operation's name in full.
    std::string function() const;
    /// Whether the n-th argument is anything but NULL or 0.
    bool has(size_t argument) const;
    /// With another word for the n-th argument.
    call with(size_t argument, const std::string &word) const;

    std::string text, name;
    std::vector<std::vector<std::string>> arguments; ///< in words; none for NULL; a quotation mark in front of a text
};

struct table_line {
    std::string section, given; ///< given: statements that are run before it; "shut;" in front: the store is closed
    call made;
    bool is_first; ///< of its operation in the world as it is
    std::string recorded;
    size_t begin, end; ///< where it stands in the file, in lines
};
std::vector<table_line> table_of_calls();
std::vector<std::string> sections();
/// The first call of each operation but the executors, and the one that asks nothing of an open store.
std::vector<call> operations();
/// The names of all there are.
std::set<std::string> operation_names();

} // namespace zel_test

#endif
