// Calls of the store's operations written as text, and outputs of every shape for them.
#ifndef ZEL_TESTS_INVOCATION_H
#define ZEL_TESTS_INVOCATION_H

#include "zel_common_storage.h"

#include <string>
#include <tuple>
#include <vector>

namespace zel_test
{

/// What the text argument "word" stands for: "word" unless a test has another word.
extern const char *word;

/// Told when an operation itself begins and ends, its arguments being read already: for whoever takes its time.
inline void (*at_call)(bool begins) = [](bool) {};

inline char nowhere[16];
/// What an output holds before a call: nothing that any operation would put there.
template <typename T> constexpr T UNTOUCHED = 77;
template <> inline constexpr bool UNTOUCHED<bool> = true;
template <> inline constexpr int UNTOUCHED<int> = -77;
template <typename T> inline T *const UNTOUCHED<T *> = reinterpret_cast<T *>(nowhere);

template <typename T> struct places {
    T values[4] = {UNTOUCHED<T>, UNTOUCHED<T>, UNTOUCHED<T>, UNTOUCHED<T>};
    size_t given = 0;
};

/// The outputs of a call.
struct answers {
    std::tuple<places<bool>, places<int>, places<unsigned int>, places<unsigned long long>, places<char *>,
               places<char **>, places<int *>, places<unsigned int *>, places<GList *>, places<zel_content_sync_info *>,
               places<quillo_msisdn_s **>, places<zel_trans_upload_info *>, places<zel_trans_share_content_info *>>
        all;
    bool flag_before = UNTOUCHED<bool>;
    bool lists_urls = false;
    size_t length_asked = 0; ///< of a list

    /// The next place of a type.
    template <typename T> T *place()
    {
        places<T> &of_type = std::get<places<T>>(all);
        return &of_type.values[of_type.given++];
    }
    /// What was handed out, as text, an entry of a list a line; empty when nothing was touched. Releases it.
    std::string take();
};

/// A call: the operation's name without its common head, then the arguments. "&" is a place of `answers` ("&false" one
/// that holds false, "&urls" one for a list of URLs), "NULL" a null pointer or 0; a text in quotation marks may hold
/// blanks; a record stands in parentheses, its members in order, and a list of records as one behind the other.
class invocation
{
  public:
    invocation(const char *text) : invocation(std::string(text)) {}
    explicit invocation(const std::string &text);

    /// Of all operations, without the common head.
    static std::vector<std::string> names();

    int operator()(answers &out) const;
    /// In full.
    std::string function() const;
    /// The same call with the n-th argument NULL or 0; no more than this when there is no such argument, or when it is
    /// already.
    invocation without(size_t argument) const;
    bool has(size_t argument) const;
    /// How many there are.
    size_t arguments() const
    {
        return arguments_.size() - 1;
    }

    struct token {
        std::string text;
        bool quoted;
    };

  private:
    std::vector<std::vector<token>> arguments_; ///< the first one is the name
};

} // namespace zel_test

#endif
