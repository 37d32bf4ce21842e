#include "place.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "zel_platform.h"

namespace fs = std::filesystem;

namespace sharing
{

constexpr size_t max_name = 255; // bytes

/* What stands where in the record of a received file. */
constexpr size_t reserved = 0;
constexpr size_t copy_name = 1;
constexpr size_t whole = 2;

open_file::~open_file()
{
    if (descriptor_ >= 0)
        close(descriptor_);
}

/* Names ----------------------------------------------------------------------------------------------------------- */

static bool is_unsuitable(gunichar letter)
{
    const bool is_bidirectional = letter == 0x061C || letter == 0x200E || letter == 0x200F ||
                                  (letter >= 0x202A && letter <= 0x202E) || (letter >= 0x2066 && letter <= 0x2069);
    return is_bidirectional || g_unichar_iscntrl(letter) || letter == 0x2028 || letter == 0x2029 || letter == 0xFFFD ||
           (letter < 0x80 && strchr("\"*:<>?|\\/", static_cast<int>(letter)));
}

/** The name with a number (0: none) before its extension, which stays when the name is cut to what it may have. */
static std::string numbered(const std::string &name, unsigned int number)
{
    const size_t dot = name.rfind('.');
    std::string extension = dot == std::string::npos || dot == 0 || name.size() - dot > 32 ? "" : name.substr(dot);
    const std::string ending = (number > 0 ? "_" + std::to_string(number) : "") + extension;
    std::string stem = name.substr(0, name.size() - extension.size());
    if (stem.size() + ending.size() > max_name) {
        stem.resize(max_name - ending.size());
        const char *end = nullptr;
        g_utf8_validate(stem.data(), static_cast<gssize>(stem.size()), &end); // no half letter at the end
        stem.resize(static_cast<size_t>(end - stem.data()));
    }
    return stem + ending;
}

std::string harmless(const std::string &name)
{
    const std::string last = name.substr(name.find_last_of('/') + 1);
    const text valid(g_utf8_make_valid(last.data(), static_cast<gssize>(last.size())));
    std::string result;
    for (const char *at = valid.get(); *at; at = g_utf8_next_char(at))
        if (is_unsuitable(g_utf8_get_char(at)))
            result += '_';
        else
            result.append(at, static_cast<size_t>(g_utf8_next_char(at) - at));
    result.erase(0, result.find_first_not_of(". "));
    result.erase(result.find_last_not_of(". ") + 1);
    return result.empty() ? "file" : numbered(result, 0);
}

/* Which file is which --------------------------------------------------------------------------------------------- */

static std::string time_text(const timespec &time)
{
    return std::to_string(time.tv_sec) + "." + std::to_string(time.tv_nsec);
}

/** Identity of an empty file: an inode's number is used again, but not with the same time of change. */
static std::string reserved_identity(const struct stat &file)
{
    return std::to_string(file.st_ino) + " " + time_text(file.st_ctim);
}

/** Identity of a file with all bytes; a move changes its time of change, but not that of modification. */
static std::string whole_identity(const struct stat &file)
{
    return std::to_string(file.st_ino) + " " + std::to_string(file.st_size) + " " + time_text(file.st_mtim);
}

static std::optional<struct stat> look_at(const std::string &path)
{
    struct stat file = {};
    if (lstat(path.c_str(), &file) != 0)
        return std::nullopt;
    return file;
}

static bool is_reserved_file(const std::string &path, const entry &record)
{
    const auto file = look_at(path);
    return file && S_ISREG(file->st_mode) && file->st_size == 0 && !record.extra[reserved].empty() &&
           reserved_identity(*file) == record.extra[reserved];
}

static bool is_whole_file(const std::string &path, const entry &record)
{
    const auto file = look_at(path);
    return file && S_ISREG(file->st_mode) && !record.extra[whole].empty() &&
           whole_identity(*file) == record.extra[whole];
}

static std::string copy_path(const zel_content_sync_info &row, const entry &record)
{
    return fs::path(text_of(row.local_path)).replace_filename(record.extra[copy_name]);
}

std::string incoming_path(unsigned int sync_id)
{
    return std::string(incoming_folder) + "/" + std::to_string(sync_id);
}

static entry record_of(const zel_content_sync_info &row)
{
    const auto record = entry_at(file_key(row.sync_id));
    require(record.has_value(), ZEL_ERR_INTERNAL_ERROR, "The store has lost what is known of the file.");
    return *record;
}

/** Fails with what the system says. */
[[noreturn]] static void fail(const std::string &what)
{
    throw failure(errno == EACCES || errno == EPERM || errno == EROFS ? ZEL_ERR_PERMISSION_DENIED
                                                                      : ZEL_ERR_REQUEST_FAILED,
                  what + ": " + strerror(errno) + ".");
}

/* Reserving ------------------------------------------------------------------------------------------------------- */

/** Makes an empty file and gives its identity; none when the name is taken. */
static std::optional<std::string> make_empty(const std::string &path)
{
    const open_file made(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (made < 0 && errno == EEXIST)
        return std::nullopt;
    struct stat file = {};
    if (made < 0 || fstat(made, &file) != 0)
        fail(path + " cannot be made");
    return reserved_identity(file);
}

void reserve(zel_content_sync_info row, const std::string &folder, const std::string &name, unsigned int size)
{
    const std::string wanted = harmless(name);
    for (unsigned int number = 0;; ++number) {
        const std::string path = fs::path(folder) / numbered(wanted, number);
        if (look_at(path))
            continue;
        add_transfer(row, name, path); // the name is known before there is a file
        try {
            if (const auto identity = make_empty(path))
                return set_entry(file_key(row.sync_id), {std::to_string(size), {*identity}});
        } catch (const std::exception &) {
            store(_common_storage_delete_sync_content_info, row.sync_id);
            throw;
        }
        store(_common_storage_delete_sync_content_info, row.sync_id);
    }
}

bool is_reserved(const zel_content_sync_info &row)
{
    entry record = record_of(row);
    if (is_reserved_file(row.local_path, record))
        return true;
    const auto identity = make_empty(row.local_path);
    if (!identity)
        return false;
    record.extra[reserved] = *identity;
    set_entry(file_key(row.sync_id), record);
    return true;
}

unsigned int size_of(const zel_content_sync_info &row)
{
    return static_cast<unsigned int>(std::strtoul(record_of(row).value.c_str(), nullptr, 10));
}

void begin_anew(const zel_content_sync_info &row)
{
    entry record = record_of(row);
    record.extra[whole].clear();
    set_entry(file_key(row.sync_id), record);
}

bool is_in_place(const zel_content_sync_info &row)
{
    return is_whole_file(row.local_path, record_of(row));
}

open_file open_incoming(const zel_content_sync_info &row)
{
    const std::string path = incoming_path(row.sync_id);
    const auto record = entry_at(file_key(row.sync_id));
    const auto file = look_at(path);
    if (file && record && !record->extra[whole].empty() && record->extra[copy_name].empty() &&
        !is_whole_file(path, *record)) {
        // A service died between an exchange of names and what follows it: what came out is not ours to write to.
        if (file->st_size > 0) {
            dlog_print(DLOG_WARN, log_tag, "left, since it may be somebody else's: %s.left\n", path.c_str());
            rename(path.c_str(), (path + ".left").c_str());
        } else {
            unlink(path.c_str());
        }
    }
    open_file incoming(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    if (incoming < 0)
        fail("The received bytes cannot be written");
    return incoming;
}

/* Putting the bytes there ----------------------------------------------------------------------------------------- */

void require_room(const zel_content_sync_info &row, unsigned long long collected)
{
    const unsigned long long size = size_of(row);
    const std::string folder = fs::path(text_of(row.local_path)).parent_path();
    const auto needs = [](const std::string &where, unsigned long long bytes) {
        struct statvfs room = {};
        require(statvfs(where.c_str(), &room) != 0 || bytes <= room.f_bavail * std::uint64_t{room.f_frsize},
                ZEL_ERR_REQUEST_FAILED, "There is no room for the file in " + where + ".");
    };
    const auto here = look_at(incoming_folder);
    const auto there = look_at(folder);
    needs(incoming_folder, size - std::min(size, collected));
    if (here && there && here->st_dev != there->st_dev)
        needs(folder, size);
}

/** Copies the bytes to the folder of the file, under a name of the copy's own; gives its path. */
static std::string copy_there(const zel_content_sync_info &row, entry &record, int bytes)
{
    const text unique(g_uuid_string_random());
    record.extra[copy_name] = std::string(".sharing-") + unique.get();
    record.extra[whole].clear();
    set_entry(file_key(row.sync_id), record); // before there is a copy
    std::string path = copy_path(row, record);
    const open_file copy(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (copy < 0)
        fail(path + " cannot be made");
    std::string block(size_t{256} * 1024, '\0');
    struct stat file = {};
    for (off_t at = 0;;) {
        require(!is_stopping, ZEL_ERR_REQ_PAUSED, "The service is stopping.");
        const ssize_t count = pread(bytes, block.data(), block.size(), at);
        if (count < 0 || (count > 0 && write(copy, block.data(), static_cast<size_t>(count)) != count) ||
            (count == 0 && (fsync(copy) != 0 || fstat(copy, &file) != 0))) {
            const int reason = errno;
            unlink(path.c_str());
            errno = reason;
            fail(path + " cannot be written");
        }
        if (count == 0)
            break;
        at += count;
    }
    record.extra[whole] = whole_identity(file);
    set_entry(file_key(row.sync_id), record);
    return path;
}

/** Has two files change their names, so that neither is lost; where the system cannot, the first takes the second's. */
static bool exchange_names(const std::string &one, const std::string &other, const entry &record)
{
    if (renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS)
        return false;
    return is_reserved_file(other, record) && rename(one.c_str(), other.c_str()) == 0;
}

static void remove_copy(const zel_content_sync_info &row, const entry &record)
{
    if (record.extra[copy_name].empty())
        return;
    const std::string path = copy_path(row, record);
    const auto file = look_at(path);
    if (!file)
        return;
    // Without the identity of all bytes it is an unfinished copy; an empty file is the one made to reserve the name.
    if (record.extra[whole].empty() || file->st_size == 0 || is_whole_file(path, record))
        unlink(path.c_str());
    else
        dlog_print(DLOG_WARN, log_tag, "left, since it may be somebody else's: %s\n", path.c_str());
}

void put_in_place(const zel_content_sync_info &row, int bytes)
{
    const std::string path = text_of(row.local_path);
    entry record = record_of(row);
    const auto require_reserved = [&](bool holds) {
        require(holds, ZEL_ERR_INVALID_FILE,
                path + " was taken or removed by somebody else. Fetching the share again gives the file another name.");
    };
    require_reserved(is_reserved_file(path, record));
    struct stat file = {};
    if (fsync(bytes) != 0 || fstat(bytes, &file) != 0)
        fail("The received bytes cannot be written");
    remove_copy(row, record); // of an attempt before
    record.extra[copy_name].clear();
    record.extra[whole] = whole_identity(file);
    set_entry(file_key(row.sync_id), record);
    std::string from = incoming_path(row.sync_id);
    bool is_moved = exchange_names(from, path, record);
    if (!is_moved && errno == EXDEV) {
        from = copy_there(row, record, bytes);
        is_moved = exchange_names(from, path, record);
    }
    if (!is_moved) {
        require_reserved(is_reserved_file(path, record));
        fail(path + " cannot be put in its place");
    }
    // What came out is the empty file that was made, unless somebody was faster than the exchange.
    if (const auto out = look_at(from)) {
        if (out->st_size != 0 || !record.extra[reserved].starts_with(std::to_string(out->st_ino) + " ")) {
            renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE);
            require_reserved(false);
        }
        unlink(from.c_str());
    }
    unlink(incoming_path(row.sync_id).c_str()); // when a copy was moved
    const open_file folder(open(fs::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder >= 0)
        fsync(folder);
}

/* Cleaning up ----------------------------------------------------------------------------------------------------- */

void free_name(const zel_content_sync_info &row)
{
    const auto record = entry_at(file_key(row.sync_id));
    const auto file = look_at(text_of(row.local_path));
    if (record && is_reserved_file(row.local_path, *record))
        unlink(row.local_path);
    else if (file && file->st_size == 0) // made just before the service died, or by somebody else
        dlog_print(DLOG_WARN, log_tag, "left, since it may be somebody else's: %s\n", row.local_path);
    if (record)
        remove_copy(row, *record);
}

void remove_unfinished(const zel_content_sync_info &row)
{
    if (row.type == ZEL_DOWNLOAD_FILE)
        free_name(row);
    if (row.type != ZEL_UPLOAD_FILE)
        unlink(incoming_path(row.sync_id).c_str());
    remove_keys_of_transfer(row.sync_id);
    store(_common_storage_delete_sync_content_info, row.sync_id);
}

} // namespace sharing
