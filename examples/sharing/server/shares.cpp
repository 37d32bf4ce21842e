#include "shares.h"

#include <algorithm>
#include <fstream>
#include <libexif/exif-data.h>
#include <limits>
#include <sstream>

#include "share_message.h"

namespace sharing
{

constexpr size_t longest_message = 4UL * 1024 * 1024;

static std::string read_whole(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

static bool is_number(const std::string &text)
{
    return text.size() >= 3 && text.size() <= 20 && text.find_first_not_of("0123456789") == std::string::npos;
}

/** The number of a push message, which is its name; 0 for other files. */
static unsigned long long place_of(const fs::path &message)
{
    guint64 number = 0;
    g_ascii_string_to_unsigned(message.filename().c_str(), 10, 1, G_MAXUINT64, &number, nullptr);
    return number;
}

/* Shares ---------------------------------------------------------------------------------------------------------- */

/** The recipients' numbers, each once; they are like "+447700900123, +12025550123". */
static std::set<std::string> recipients_in(const std::string &list)
{
    std::set<std::string> numbers;
    g_auto(GStrv) parts = g_strsplit(list.c_str(), ",", -1);
    for (char **part = parts; *part; ++part) {
        const std::string one = g_strstrip(*part);
        const std::string number = one.substr(one.starts_with('+') ? 1 : 0);
        if (!is_number(number))
            throw failure(ZEL_ERR_INVALID_ARG, "'" + one + "' is no phone number of 3 to 20 digits.");
        numbers.insert(number);
    }
    if (numbers.empty())
        throw failure(ZEL_ERR_INVALID_ARG, "A share has one recipient at least.");
    return numbers;
}

/** Stores the thumbnail that a picture carries, unless it has none; whether there is one. */
static bool store_thumbnail(const upload &picture)
{
    const std::unique_ptr<ExifData, releaser<exif_data_unref>> data(
        exif_data_new_from_file((picture.folder / "bytes").c_str()));
    if (!data || !data->data || data->size == 0)
        return false;
    write_whole(picture.folder / "thumbnail", {reinterpret_cast<const char *>(data->data), data->size});
    return true;
}

/** Fills in what only the server knows of a share; throws unless each item is a finished upload. */
static void complete(zel_trans_share_content_info &record, const uploads &files, const std::string &token,
                     gint64 expires)
{
    const auto items = elements_of<share_item>(record.content_info_list);
    std::vector<upload> found;
    for (const auto *item : items) {
        const auto one = files.find_finished(text_of(item->original));
        if (!one || one->length > std::numeric_limits<unsigned int>::max())
            throw failure(ZEL_ERR_RESOURCE_DOESNT_EXIST, "'" + text_of(item->original) + "' is no finished upload.");
        found.push_back(*one);
    }
    if (items.empty())
        throw failure(ZEL_ERR_INVALID_ARG, "A share has one item at least.");
    const auto set_text = [](char *&field, const std::string &text) {
        g_free(field);
        field = text.empty() ? nullptr : g_strdup(text.c_str());
    };
    set_text(record.contents_token, token);
    record.expired_time = static_cast<unsigned long long>(expires);
    for (size_t i = 0; i < items.size(); ++i) {
        const upload &file = found[i];
        fs::last_write_time(file.folder / "bytes", fs::file_time_type::clock::now()); // it lasts as long as the share
        set_text(items[i]->thumbnail, store_thumbnail(file) ? "/thumbnails/" + file.folder.filename().string() : "");
        set_text(items[i]->contents_token, token);
        items[i]->size = static_cast<unsigned int>(file.length);
        items[i]->max_download_count = 10;
    }
}

/** A share as it will be stored; throws when it can never be accepted. */
std::string shares::plan(const std::string &message) const
{
    const share record = decode(message);
    const auto numbers = recipients_in(text_of(record->to_list));
    g_autofree char *uuid = g_uuid_string_random();
    std::string token = uuid;
    std::erase(token, '-');
    const gint64 expires = now_in_milliseconds() + chosen_.lifetime.count();
    complete(*record, files_, token, expires);
    std::string text = token + " " + std::to_string(expires) + "\n";
    for (const std::string &number : numbers) {
        unsigned long long last = 0;
        for (const fs::path &earlier : entries_of(chosen_.folder / "push" / number))
            last = std::max(last, place_of(earlier));
        text += number + " " + std::to_string(last + 1) + "\n";
    }
    return text + "\n" + encode(*record);
}

/**
 * Makes a share. The key gives the same share again, since a device that died before it had the reply asks again. The
 * plan is what makes a share count: after it, its push messages come in any case, and each once.
 */
reply shares::issue(const std::string &key, const std::string &message)
try {
    const fs::path issued = chosen_.folder / "shares" / key;
    complete_plans();
    if (!fs::exists(issued)) {
        write_whole(chosen_.folder / "plans" / key, plan(message));
        complete_plans();
    }
    std::istringstream line(read_whole(issued));
    std::string token;
    std::string expires;
    line >> token >> expires;
    return {.status = 201, .headers = {{"Contents-Token", token}, {"Expires-Milliseconds", expires}}};
} catch (const failure &reason) {
    return refuse(400, reason.what());
}

class shares::posted final : public exchange
{
  public:
    posted(shares &all, std::string key, connection &line) : exchange(line), all_(all), key_(std::move(key)) {}

    bool wants_body() const override
    {
        return body_.size() <= longest_message;
    }
    void take(std::string_view piece) override
    {
        body_ += piece;
    }
    std::optional<reply> answer() override
    {
        return wants_body() ? all_.issue(key_, body_) : refuse(413, "A share has 4 MiB at most.");
    }

  private:
    shares &all_;
    const std::string key_;
    std::string body_;
};

/* Push messages --------------------------------------------------------------------------------------------------- */

/** Waits for the push message after one. */
class shares::poll final : public exchange
{
  public:
    poll(shares &all, fs::path mailbox, unsigned long long after, connection &line)
        : exchange(line), all_(all), mailbox_(std::move(mailbox)), after_(after)
    {
        all_.waiting_.insert(this);
    }
    ~poll() override
    {
        all_.waiting_.erase(this);
    }

    std::optional<reply> answer() override
    {
        unsigned long long next = 0;
        for (const fs::path &message : entries_of(mailbox_))
            if (const auto place = place_of(message); place > after_ && (next == 0 || place < next))
                next = place;
        if (next > 0)
            return reply{.headers = {{"Content-Type", octets}, {"Push-Number", std::to_string(next)}},
                         .body = read_whole(mailbox_ / std::to_string(next))};
        const milliseconds left(end_ - now_in_milliseconds());
        if (left.count() <= 0)
            return reply{.status = 204};
        line_.rest(left);
        return std::nullopt;
    }

    void look()
    {
        line_.wake();
    }

  private:
    shares &all_;
    const fs::path mailbox_;
    const unsigned long long after_;
    const gint64 end_ = now_in_milliseconds() + all_.chosen_.long_poll.count();
};

void shares::complete_plans()
{
    remove_half_written(chosen_.folder / "plans");
    for (const fs::path &planned : entries_of(chosen_.folder / "plans")) {
        const std::string text = read_whole(planned);
        const size_t end = text.find("\n\n");
        std::istringstream lines(text.substr(0, end));
        std::string line;
        std::getline(lines, line);
        for (std::string number, place; lines >> number >> place;)
            write_whole(chosen_.folder / "push" / number / place, text.substr(end + 2));
        fs::create_directories(chosen_.folder / "shares");
        fs::rename(planned, chosen_.folder / "shares" / planned.filename());
        for (poll *one : waiting_)
            one->look();
    }
}

void shares::sweep() const
{
    const auto now = fs::file_time_type::clock::now();
    const auto is_expired = [&](const fs::path &file) { return fs::last_write_time(file) + chosen_.lifetime <= now; };
    remove_half_written(chosen_.folder / "shares");
    for (const fs::path &issued : entries_of(chosen_.folder / "shares"))
        if (is_expired(issued))
            fs::remove(issued);
    for (const fs::path &mailbox : entries_of(chosen_.folder / "push")) {
        remove_half_written(mailbox);
        auto messages = entries_of(mailbox);
        std::ranges::sort(messages, {}, place_of);
        if (!messages.empty())
            messages.pop_back(); // the last one keeps the count
        for (const fs::path &message : messages)
            if (is_expired(message))
                fs::remove(message);
    }
}

std::unique_ptr<exchange> shares::open(const request &asked, connection &line)
{
    if (asked.path == "/shares" && asked.method == "POST") {
        const std::string key = asked.header("Share-Key");
        if (!g_regex_match_simple("^[0-9a-f]{32}$", key.c_str(), {}, G_REGEX_MATCH_NOTEMPTY))
            return settled(line, refuse(400, "A share has a Share-Key of 32 hexadecimal digits."));
        return std::make_unique<posted>(*this, key, line);
    }
    const std::string prefix = "/push/";
    const std::string number = asked.path.starts_with(prefix) ? asked.path.substr(prefix.size()) : "";
    if (asked.method != "GET" || !is_number(number))
        return nullptr;
    const unsigned long long after = g_ascii_strtoull(asked.argument("after").c_str(), nullptr, 10);
    return std::make_unique<poll>(*this, chosen_.folder / "push" / number, after, line);
}

} // namespace sharing
