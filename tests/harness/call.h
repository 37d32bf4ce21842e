// Calls of the store's operations, written as text.
#ifndef ZEL_TESTS_CALL_H
#define ZEL_TESTS_CALL_H

#include "value.h"

#include <string>
#include <vector>

namespace zel_test
{

/// What an operation returns and hands out.
struct result {
    int code = 0;
    std::vector<std::string> outputs; ///< a word for each, in their order; "-" for one that was left alone
    /// Each output after a blank; nothing when all were left alone.
    std::string words() const;
};

/// An operation's name without its common head, then a word for each argument: a number, a text, NULL, or "&" for an
/// output. "&false" holds false before the call, "&urls" is a list of URLs. The members of a record have commas between
/// them, and those of further records follow; "*" stands for no record. Parentheses are for the reader.
struct call {
    explicit call(const std::string &given);
    /// Why it cannot be made; empty if it can.
    std::string mistake() const;
    /// Reads the arguments, calls, and releases what is handed out.
    result operator()() const;
    bool takes_number(size_t argument) const;
    /// The operation's name in full.
    std::string function() const;

    std::string text, name;
    std::vector<std::string> arguments;
};

/// How an operation takes one of its arguments.
struct parameter {
    const type *of;
    bool is_output; ///< the argument points to a value of that type
};
struct operation {
    const char *name;
    bool returns_code; ///< a zel_err_e; else whether it returned something else than 0 counts
    void (*function)();
    int (*run)(void (*function)(), const slot *arguments);
    std::vector<parameter> (*parameters)();
};

/// A call with its arguments read.
class prepared_call
{
  public:
    explicit prepared_call(const call &given);
    void run();
    /// To be asked once, after the run: releases what was read and handed out.
    result take_result();

  private:
    struct argument {
        parameter how;
        std::string word;
        slot value, before;               ///< of an output, what it points to
        std::vector<std::string> members; ///< before the call, of an input
    };
    const operation &operation_;
    std::vector<argument> arguments_;
    int returned_ = 0;
};

std::vector<std::string> operation_names();

} // namespace zel_test

#endif
