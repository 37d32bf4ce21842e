#include "call.h"

#include "zel_common_storage/connection.h"
#include "zel_common_storage/received_shares.h"
#include "zel_platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iomanip>
#include <sstream>
#include <utility>

namespace zel_test
{

namespace
{

/// Records and texts, arrays of recipients and functions are inputs; whatever else is pointed to is an output.
template <typename T> parameter parameter_of()
{
    using pointee = std::remove_pointer_t<T>;
    constexpr bool is_output = std::is_pointer_v<T> && !std::is_const_v<pointee> && !std::is_function_v<pointee> &&
                               !std::is_same_v<T, quillo_msisdn_s **> &&
                               (std::is_arithmetic_v<pointee> || std::is_enum_v<pointee> || std::is_pointer_v<pointee>);
    if constexpr (is_output)
        return {type_of<pointee>(), true};
    else
        return {type_of<T>(), false};
}

template <typename T> T value_in(const slot &from)
{
    T value;
    std::memcpy(&value, from.bytes, sizeof value);
    return value;
}

template <typename Result, typename... Parameters>
operation describe(const char *name, Result (*function)(Parameters...))
{
    const auto run = [](void (*erased)(), const slot *arguments) {
        const auto typed = reinterpret_cast<Result (*)(Parameters...)>(erased);
        const auto call_with = [&]<size_t... I>(std::index_sequence<I...>)
        {
            return typed(value_in<Parameters>(arguments[I])...);
        };
        const Result returned = call_with(std::index_sequence_for<Parameters...>());
        if constexpr (std::is_same_v<Result, sqlite3_stmt *>)
            sqlite3_finalize(returned);
        if constexpr (std::is_same_v<Result, zel_err_e>)
            return static_cast<int>(returned);
        else
            return static_cast<int>(returned != Result());
    };
    return {name, std::is_same_v<Result, zel_err_e>, reinterpret_cast<void (*)()>(function), run,
            [] { return std::vector<parameter>{parameter_of<Parameters>()...}; }};
}

void log_callback(void *key, void *text)
{
    dlog_print(DLOG_DEBUG, "QUILLO_COMMON", "callback(1): called with %s, %s\n", static_cast<char *>(key),
               static_cast<char *>(text));
}

const std::vector<operation> &operations()
{
#define INTERNAL(name) describe(#name, name)
#define OP(name) describe(#name, _common_storage_##name)
    // clang-format off
    static const std::vector<operation> all = {
        INTERNAL(__execute_query),
        INTERNAL(__execute_insert_query),
        INTERNAL(__execute_select_query),
        INTERNAL(__common_storage_get_db_version),
        OP(delete_push_noti),
        OP(delete_content_info),
        OP(add_content_info),
        OP(exist_content_info),
        OP(get_contents),
#include "exported_operations.inc" // OP of each, made from the list of exports
    };
    // clang-format on
    return all;
}

const operation *find_operation(const std::string &name)
{
    const auto &all = operations();
    const auto found = std::find_if(all.begin(), all.end(), [&](const operation &it) { return it.name == name; });
    return found == all.end() ? nullptr : &*found;
}

/// What all outputs hold before a call, and no operation would put there.
constexpr int UNTOUCHED = 77;

size_t distance(const std::string &one, const std::string &other)
{
    const auto edits = testing::internal::edit_distance::CalculateOptimalEdits(
        std::vector<size_t>(one.begin(), one.end()), std::vector<size_t>(other.begin(), other.end()));
    return static_cast<size_t>(std::count_if(
        edits.begin(), edits.end(), [](auto edit) { return edit != testing::internal::edit_distance::kMatch; }));
}

} // namespace

std::string result::words() const
{
    std::string all;
    if (std::any_of(outputs.begin(), outputs.end(), [](const std::string &word) { return word != "-"; }))
        for (const std::string &word : outputs)
            all += " " + word;
    return all;
}

call::call(const std::string &given) : text(given)
{
    std::istringstream words(given);
    words >> name;
    for (std::string word; words >> std::quoted(word);)
        arguments.push_back(word);
}

std::string call::mistake() const
{
    const operation *const found = find_operation(name);
    if (!found) {
        const auto all = operation_names();
        const auto closest = std::min_element(all.begin(), all.end(), [&](const auto &one, const auto &other) {
            return distance(one, name) < distance(other, name);
        });
        return "no operation " + name + "; is it " + *closest + "?";
    }
    if (const size_t wanted = found->parameters().size(); wanted != arguments.size())
        return name + " takes " + std::to_string(wanted) + " arguments, not " + std::to_string(arguments.size());
    return "";
}

result call::operator()() const
{
    prepared_call prepared(*this);
    prepared.run();
    return prepared.take_result();
}

bool call::takes_number(size_t argument) const
{
    const parameter how = find_operation(name)->parameters()[argument];
    return how.of->form == type::NUMBER && !how.is_output;
}

std::string call::function() const
{
    return (name.starts_with("__") ? "" : "_common_storage_") + name;
}

prepared_call::prepared_call(const call &given) : operation_(*find_operation(given.name))
{
    for (const parameter &how : operation_.parameters()) {
        argument it{how, given.arguments.at(arguments_.size()), {}, {}, {}};
        if (it.how.is_output) {
            std::memset(it.value.bytes, UNTOUCHED, sizeof it.value.bytes);
            if (it.how.of == type_of<bool>())
                it.value.bytes[0] = it.word != "&false";
            if (it.word == "&urls")
                it.how.of = &urls;
            it.before = it.value;
        } else if (it.how.of->form == type::CALLBACK) {
            void (*const callback)(void *, void *) = it.word == "NULL" ? nullptr : log_callback;
            std::memcpy(it.value.bytes, &callback, sizeof callback);
            it.members = {""};
        } else {
            slot copy;
            read(*it.how.of, copy.bytes, it.word);
            it.members = take_members(*it.how.of, copy.bytes);
            read(*it.how.of, it.value.bytes, it.word);
        }
        arguments_.push_back(it);
    }
}

void prepared_call::run()
{
    std::vector<slot> values;
    for (argument &it : arguments_) {
        values.push_back(it.value);
        if (it.how.is_output) {
            void *const output = it.word == "NULL" ? nullptr : it.value.bytes;
            std::memcpy(values.back().bytes, &output, sizeof output);
        }
    }
    returned_ = operation_.run(operation_.function, values.data());
}

result prepared_call::take_result()
{
    result all;
    if (operation_.returns_code)
        all.code = returned_;
    else
        all.outputs.push_back(std::to_string(returned_));
    // An array is as long as the number beside it says: the one after it, or else the one before.
    const auto number_beside = [&](size_t i) {
        const size_t beside = i + 1 < arguments_.size() ? i + 1 : i - 1;
        slot copy = arguments_[beside].value;
        return number_in(take(*arguments_[beside].how.of, copy.bytes));
    };
    for (size_t i = 0; i < arguments_.size(); ++i) {
        argument &it = arguments_[i];
        const type &of = *it.how.of;
        if (!it.how.is_output) {
            const std::vector<std::string> now = take_members(of, it.value.bytes);
            for (size_t m = 0; m < now.size(); ++m)
                if (now[m] != it.members[m])
                    all.outputs.push_back(now[m]);
        } else if (it.word != "NULL") {
            const bool is_untouched = std::memcmp(it.value.bytes, it.before.bytes, sizeof it.value.bytes) == 0;
            if (is_untouched && &of != type_of<bool>())
                all.outputs.push_back("-");
            else
                all.outputs.push_back(take(of, it.value.bytes, of.form == type::ARRAY ? number_beside(i) : NO_LENGTH));
        }
    }
    return all;
}

std::vector<std::string> operation_names()
{
    std::vector<std::string> all;
    for (const operation &it : operations())
        all.emplace_back(it.name);
    return all;
}

} // namespace zel_test
