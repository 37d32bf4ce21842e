#include "value.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <glib.h>
#include <sstream>

namespace zel_test
{

#define MEMBER(record, name)                                                                                           \
    {                                                                                                                  \
        type_of<decltype(record::name)>(), offsetof(record, name)                                                      \
    }
#define LIST_MEMBER(record, name, of)                                                                                  \
    {                                                                                                                  \
        &of, offsetof(record, name)                                                                                    \
    }

const type text_type{type::TEXT};
const type callback_type{type::CALLBACK};

#define OF(name) MEMBER(quillo_msisdn_s, name)
const type recipient{.form = type::RECORD,
                     .members = {OF(ccc), OF(phone_number), OF(number_id), OF(group_id)},
                     .record_size = sizeof(quillo_msisdn_s)};
#undef OF

#define OF(name) MEMBER(zel_content_sync_info, name)
const type transfer{.form = type::RECORD,
                    .members = {OF(sync_id), OF(type), OF(status), OF(content_id), OF(req_id), OF(wifi_only),
                                OF(fail_retry_count), OF(percentage), OF(offset), OF(chunk_no), OF(sent_time),
                                OF(contents_token), OF(original), OF(thumbnail), OF(name), OF(local_path),
                                OF(mupload_key)},
                    .record_size = sizeof(zel_content_sync_info)};
#undef OF

#define OF(name) MEMBER(zel_upload_request_info, name)
const type upload_request{.form = type::RECORD,
                          .members = {OF(unique_id), OF(req_id), OF(file_count), OF(status), OF(receiver_count),
                                      OF(expired_time), OF(total_size), OF(contents_token), OF(app_type), OF(from_ccc),
                                      OF(from_number), OF(description), OF(sent_time)},
                          .record_size = sizeof(zel_upload_request_info)};
#undef OF

#define OF(name) MEMBER(zel_trans_content_info, name)
const type content{.form = type::RECORD,
                   .members = {OF(content_id), OF(original), OF(thumbnail), OF(mid_thumbnail), OF(big_thumbnail),
                               OF(name), OF(content_type), OF(contents_token), OF(download_count),
                               OF(max_download_count), OF(size)},
                   .record_size = sizeof(zel_trans_content_info)};
#undef OF

static const type contents{.form = type::LIST, .element = &content};
static const type paths{.form = type::LIST, .element = &text_type};

#define OF(name) MEMBER(zel_trans_share_content_info, name)
const type share{.form = type::RECORD,
                 .members = {OF(contents_token), OF(description), OF(type), OF(from_msisdn), OF(to_list),
                             OF(expired_time), OF(push_status),
                             LIST_MEMBER(zel_trans_share_content_info, content_info_list, contents),
                             OF(content_info_list_length)},
                 .record_size = sizeof(zel_trans_share_content_info)};
#undef OF

#define OF(name) MEMBER(zel_trans_upload_info, name)
const type upload_report{.form = type::RECORD,
                         .members = {OF(request_id), OF(total_size), OF(file_count), OF(expired_time), OF(sent_time),
                                     OF(contents_token), OF(status),
                                     LIST_MEMBER(zel_trans_upload_info, file_path_list, paths), OF(msisdn_count),
                                     OF(msisdn_list)},
                         .record_size = sizeof(zel_trans_upload_info)};
#undef OF

#define OF(name) MEMBER(zel_trans_url_info, name)
static const type url{
    .form = type::RECORD, .members = {OF(url), OF(content_type)}, .record_size = sizeof(zel_trans_url_info)};
#undef OF

const type transfers{.form = type::LIST, .element = &transfer};
const type urls{.form = type::LIST, .element = &url};

namespace
{

template <typename T> T &at(void *place)
{
    return *static_cast<T *>(place);
}

void *part(void *block, size_t offset)
{
    return static_cast<char *>(block) + offset;
}

/// The bytes of a number are copied to and from the lowest ones of a long: all targets are little-endian.
std::string number_at(const type &of, const void *place)
{
    unsigned long long bits = 0;
    std::memcpy(&bits, place, of.size);
    const size_t unused = 64 - 8 * of.size;
    return of.is_signed ? std::to_string(static_cast<long long>(bits << unused) >> unused) : std::to_string(bits);
}

std::string joined(const std::vector<std::string> &words, const std::string &between)
{
    std::string all;
    for (const std::string &word : words)
        all += (all.empty() ? "" : between) + word;
    return all;
}

void read_next(const type &of, void *place, std::istream &words);

/// "*" stands for no record, "&" for a record of zeros.
void *read_record(const type &of, std::istream &words)
{
    const int first = words.peek();
    void *const record = first == '*' ? nullptr : g_malloc0(of.record_size);
    if (first == '*' || first == '&')
        words.ignore(2);
    else
        for (const member &it : of.members)
            read_next(*it.of, part(record, it.offset), words);
    return record;
}

void read_next(const type &of, void *place, std::istream &words)
{
    if (of.form == type::LIST) {
        while (words.peek() != EOF)
            at<GList *>(place) = g_list_append(at<GList *>(place), read_record(*of.element, words));
        return;
    }
    std::string word;
    std::getline(words, word, ',');
    std::erase_if(word, [](char letter) { return letter == '(' || letter == ')'; });
    read(of, place, word);
}

} // namespace

std::string without_prefix(std::string text)
{
    for (size_t at = 0; !prefix.empty() && (at = text.find(prefix, at)) != std::string::npos;)
        text.erase(at, prefix.size());
    return text;
}

std::string shown(const char *text)
{
    const std::string all = text ? without_prefix(text) : "NULL";
    return all.empty() || all.find(' ') != std::string::npos ? "\"" + all + "\"" : all;
}

unsigned long long number_in(const std::string &word)
{
    static const std::vector<std::string> names[] = {
        {"any", "upload", "thumbnail", "download"}, {"todo", "ongoing", "failed", "paused", "paused_todo", "complete"}};
    for (const auto &known : names)
        if (const auto found = std::find(known.begin(), known.end(), word); found != known.end())
            return static_cast<unsigned long long>(found - known.begin());
    return strtoull(word.c_str(), nullptr, 10); // a negative one too
}

void read(const type &of, void *place, const std::string &word)
{
    if (of.form == type::NUMBER) {
        const unsigned long long number = number_in(word);
        std::memcpy(place, &number, of.size);
        return;
    }
    at<void *>(place) = nullptr;
    if (word == "NULL")
        return;
    std::istringstream words(word == "nobody" ? "" : word);
    if (of.form == type::TEXT) {
        at<char *>(place) = g_strdup(word.empty() ? "" : (prefix + word).c_str());
    } else if (of.form == type::RECORD) {
        at<void *>(place) = read_record(of, words);
    } else if (of.form == type::ARRAY) {
        std::vector<void *> records;
        while (words.peek() != EOF)
            records.push_back(read_record(*of.element, words));
        void **const array = g_new0(void *, records.size() + 1);
        std::copy(records.begin(), records.end(), array);
        at<void **>(place) = array;
    }
}

std::vector<std::string> take_members(const type &of, void *place)
{
    if (of.form != type::RECORD || !at<void *>(place))
        return {take(of, place)};
    void *const record = at<void *>(place);
    std::vector<std::string> words;
    unsigned long long number = 0;
    for (const member &it : of.members) {
        words.push_back(take(*it.of, part(record, it.offset), number));
        number = number_in(words.back());
    }
    g_free(record);
    return words;
}

std::string take(const type &of, void *place, unsigned long long length)
{
    std::vector<std::string> words;
    switch (of.form) {
    case type::NUMBER:
        return number_at(of, place);
    case type::TEXT: {
        const std::string word = shown(at<char *>(place));
        g_free(at<char *>(place));
        return word;
    }
    case type::RECORD:
        return at<void *>(place) ? "(" + joined(take_members(of, place), ",") + ")" : "NULL";
    case type::ARRAY: {
        char *const array = at<char *>(place);
        if (!array)
            return "NULL";
        for (unsigned long long i = 0; i < length; ++i) {
            void *const element = array + i * of.element->size;
            if (length == NO_LENGTH && !at<void *>(element))
                break;
            words.push_back(take(*of.element, element));
        }
        g_free(array);
        return "[" + joined(words, ", ") + "]";
    }
    case type::LIST:
        for (GList *&list = at<GList *>(place); list; list = g_list_delete_link(list, list))
            words.push_back(take(*of.element, &list->data));
        return "[" + joined(words, ", ") + "]";
    case type::CALLBACK:
        break;
    }
    return "";
}

} // namespace zel_test
