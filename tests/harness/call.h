// Calls of the store's operations, written as text, and the table of them, storage/operations/.
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
};

/// An operation's name without its common head, then a word for each argument: a number, a text, NULL, "&" for an
/// output ("&false" for one that holds false, "&urls" for a list of URLs); the members of a record, in their order,
/// have commas between them, and those of further records follow ("*" for none); parentheses are for the reader.
struct call {
    explicit call(const std::string &given);
    /// Reads the arguments, calls, and releases what is handed out.
    told operator()() const;
    /// The operation's name in full.
    std::string function() const;

    std::string text, name;
    std::vector<std::string> arguments;
};

/// The parts of the table, a file each.
inline const std::string sections[] = {"database",  "key_value",       "received_shares",
                                       "transfers", "transfer_counts", "transfer_lists",
                                       "uploads",   "upload_reports",  "recent_receivers"};
struct table_line {
    std::string text; ///< as it stands there; of a line that is no call there is nothing more
    call made;
    std::string given; ///< statements that are run before it; "shut;" in front: the store is closed
    bool is_first;     ///< of its operation in the world as it is
};
std::vector<table_line> table_of(const std::string &section);
/// The first call of each operation but the executors, and the one that asks nothing of an open store.
std::vector<call> operations();
/// The names of all there are.
std::set<std::string> operation_names();

} // namespace zel_test

#endif
