// The file-backed property bag: the entries of one bag as one JSON document, saved atomically.
//
// {
//   "format": "qmxbag",
//   "version": 1,
//   "entries": [
//     {"name": "KeyFrameAngle", "int": 1},
//     {"name": "Title", "string": "Übersicht"},
//     {"nameUnits": [55296], "units": [97, 57343]}
//   ]
// }
//
// Entries are sorted by name (wide-character order), one per line. A name or text of valid Unicode is a
// UTF-8 string ("name", "string"); one holding surrogates or units past U+10FFFF is kept as its 32-bit
// code units ("nameUnits", "units") so that it comes back exactly.
//
// Writers agree through the file's edit lock, flock(LOCK_EX) on the file itself. A save writes a new
// file and renames it over the old one, so the lock has to move with it: the new file is locked before
// the rename, and the old descriptor is closed after it. A waiter that then gets the old file's lock
// sees that the path names another file and waits for that one instead.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <json/json.h>

#include "PropertyStore.h"
#include "QMXPropertyBag.h"
#include "TextConvert.h"

namespace {

using qmxhost::PropertyStore;
using Entries = PropertyStore::Entries;

constexpr const char* kFormat = "qmxbag";
constexpr int kVersion = 1;

// Copies `message` into `error` (zero-terminated, at most `length` bytes, never cutting a UTF-8 sequence).
void SetError(char* error, int length, const std::string& message)
{
    if (error == nullptr || length <= 0)
        return;
    size_t n = message.size() < size_t(length) ? message.size() : size_t(length) - 1;
    while (n > 0 && n < message.size() && (static_cast<unsigned char>(message[n]) & 0xC0) == 0x80)
        --n;
    std::memcpy(error, message.data(), n);
    error[n] = '\0';
}

bool Fail(std::string& what, std::string message)
{
    what = std::move(message);
    return false;
}

bool IsTextUnit(uint32_t unit)  // a scalar value and not a zero, which would end the text early
{
    return unit != 0 && qmxhost::IsScalarValue(unit);
}

bool IsUnicode(const std::wstring& text)
{
    for (wchar_t unit : text)
        if (!IsTextUnit(static_cast<uint32_t>(unit)))
            return false;
    return true;
}

std::string ToUtf8(const std::wstring& text)  // U+FFFD for units that are not scalar values
{
    std::string out;
    for (wchar_t unit : text)
        qmxhost::AppendUtf8(out, unit);
    return out;
}

// Strict UTF-8: no overlong forms, surrogates, values past U+10FFFF or zeros.
bool FromUtf8(const std::string& in, std::wstring& out)
{
    out.clear();
    const auto* s = reinterpret_cast<const unsigned char*>(in.data());
    const auto* end = s + in.size();
    while (s != end) {
        const std::optional<char32_t> cp = qmxhost::DecodeUtf8(s, end);
        if (!cp || *cp == 0)
            return false;
        out += static_cast<wchar_t>(*cp);
    }
    return true;
}

// `"key": value` for a wide string: a JSON string when it is valid Unicode, its code units otherwise.
void AppendText(std::string& out, const Json::StreamWriterBuilder& writer, const char* textKey,
                const char* unitsKey, const std::wstring& text)
{
    if (IsUnicode(text)) {
        out += std::string("\"") + textKey + "\": " + Json::writeString(writer, Json::Value(ToUtf8(text)));
        return;
    }
    out += std::string("\"") + unitsKey + "\": [";
    for (size_t i = 0; i < text.size(); ++i)
        out += (i == 0 ? "" : ", ") + std::to_string(static_cast<uint32_t>(text[i]));
    out += "]";
}

std::string Serialize(const Entries& entries)
{
    Json::StreamWriterBuilder writer;  // strings only: compact, non-ASCII kept as UTF-8
    writer["indentation"] = "";
    writer["emitUTF8"] = true;
    std::string out = std::string("{\n  \"format\": \"") + kFormat + "\",\n  \"version\": " +
                      std::to_string(kVersion) + ",\n  \"entries\": [";
    const char* separator = "\n";
    for (const auto& [name, entry] : entries) {
        out += separator;
        out += "    {";
        AppendText(out, writer, "name", "nameUnits", name);
        out += ", ";
        if (entry.isInt)
            out += "\"int\": " + std::to_string(entry.number);
        else
            AppendText(out, writer, "string", "units", entry.text);
        out += "}";
        separator = ",\n";
    }
    out += entries.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return out;
}

// "line 3, column 5: <message>" from the reader's first report ("* Line 3, Column 5\n  <message>\n").
std::string FirstParseError(const std::string& report)
{
    int line = 0, column = 0, used = 0;
    if (std::sscanf(report.c_str(), "* Line %d, Column %d\n%n", &line, &column, &used) == 2 && used > 0) {
        size_t start = report.find_first_not_of(' ', size_t(used));
        const size_t end = report.find('\n', start);
        if (start == std::string::npos)
            start = report.size();
        return "line " + std::to_string(line) + ", column " + std::to_string(column) + ": " +
               report.substr(start, end == std::string::npos ? std::string::npos : end - start);
    }
    return report.empty() ? "not JSON" : report;
}

bool IsIntegerValue(const Json::Value& v)
{
    return v.type() == Json::intValue || v.type() == Json::uintValue;
}

// A wide string from `"key": "text"` or `"key": [units]`; false with `what` set when it is neither.
bool ReadText(const Json::Value& value, const std::string& key, bool units, std::wstring& out,
              std::string& what)
{
    if (!units) {
        if (!value.isString())
            return Fail(what, "\"" + key + "\" is not a string");
        if (!FromUtf8(value.asString(), out))
            return Fail(what, "\"" + key + "\" is not valid UTF-8 text without zeros");
        return true;
    }
    out.clear();
    if (value.isArray()) {
        for (const Json::Value& unit : value) {
            if (!IsIntegerValue(unit) || !unit.isUInt() || unit.asUInt() == 0)
                break;
            out += static_cast<wchar_t>(unit.asUInt());
        }
        if (out.size() == value.size())
            return true;
    }
    return Fail(what, "\"" + key + "\" is not an array of code units from 1 to 4294967295");
}

// One entry object into `entries`; false with `what` set when it is malformed.
bool ReadEntry(const Json::Value& node, Entries& entries, std::string& what)
{
    if (!node.isObject())
        return Fail(what, "not an object");
    std::wstring name;
    PropertyStore::Entry entry{false, 0, std::wstring()};
    int names = 0, values = 0;
    for (const std::string& key : node.getMemberNames()) {
        const Json::Value& value = node[key];
        if (key == "name" || key == "nameUnits") {
            if (++names > 1)
                return Fail(what, "more than one name");
            if (!ReadText(value, key, key == "nameUnits", name, what))
                return false;
        } else if (key == "string" || key == "units") {
            if (++values > 1)
                return Fail(what, "more than one value");
            if (!ReadText(value, key, key == "units", entry.text, what))
                return false;
        } else if (key == "int") {
            if (++values > 1)
                return Fail(what, "more than one value");
            if (!IsIntegerValue(value))
                return Fail(what, "\"int\" is not an integer");
            if (!value.isInt())
                return Fail(what, "\"int\" is out of range");
            entry.isInt = true;
            entry.number = value.asInt();
        } else {
            return Fail(what, "unexpected member \"" + key + "\"");
        }
    }
    if (names == 0)
        return Fail(what, "no \"name\"");
    if (values == 0)
        return Fail(what, "no value (\"int\", \"string\" or \"units\")");
    if (!entries.try_emplace(std::move(name), std::move(entry)).second)  // moves nothing on a duplicate
        return Fail(what, "duplicate name \"" + ToUtf8(name) + "\"");
    return true;
}

// The entries of a bag document; false with `what` set for a damaged or foreign one.
bool Parse(const std::string& text, Entries& entries, std::string& what)
{
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value parsed;
    std::string report;
    if (!reader->parse(text.data(), text.data() + text.size(), &parsed, &report))
        return Fail(what, FirstParseError(report));
    const Json::Value& root = parsed;  // const: looking a member up never adds it
    if (!root.isObject() || !root["format"].isString() || root["format"].asString() != kFormat)
        return Fail(what, std::string("not a property bag (no \"format\": \"") + kFormat + "\")");
    if (!root.isMember("version"))
        return Fail(what, "no \"version\"");
    const Json::Value& version = root["version"];
    if (!IsIntegerValue(version) || !version.isInt() || version.asInt() != kVersion) {
        Json::StreamWriterBuilder writer;
        writer["indentation"] = "";
        return Fail(what, "unsupported version " + Json::writeString(writer, version) + " (version " +
                      std::to_string(kVersion) + " is read)");
    }
    for (const std::string& key : root.getMemberNames())
        if (key != "format" && key != "version" && key != "entries")
            return Fail(what, "unexpected member \"" + key + "\"");
    const Json::Value& list = root["entries"];
    if (!list.isArray())
        return Fail(what, "\"entries\" is not an array");
    for (Json::ArrayIndex i = 0; i < list.size(); ++i)
        if (!ReadEntry(list[i], entries, what))
            return Fail(what, "entry " + std::to_string(i + 1) + ": " + what);
    return true;
}

std::string ErrnoText(int code) { return std::strerror(code); }

constexpr int kSaveWaitMilliseconds = 10000;  // how long a save of a bag without the lock waits for it
constexpr int kMostLinks = 40;                 // symbolic links followed, as the kernel allows

// Closes its descriptor when it goes, which gives back a lock taken on it.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : m_fd(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { Reset(); }
    int Get() const { return m_fd; }
    void Reset(int fd = -1)
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = fd;
    }
    int Release() { return std::exchange(m_fd, -1); }

private:
    int m_fd;
};

// Which version of its file a bag last read or wrote, or that there was none: a save by a bag that does
// not hold the edit lock replaces only that version.
struct FileIdentity {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};

    static FileIdentity Of(const struct stat& info)
    {
        return {true, info.st_dev, info.st_ino, info.st_size, info.st_mtim};
    }
    bool operator==(const FileIdentity& other) const
    {
        return exists == other.exists && device == other.device && inode == other.inode &&
               size == other.size && modified.tv_sec == other.modified.tv_sec &&
               modified.tv_nsec == other.modified.tv_nsec;
    }
};

// The whole content of `fd` and what fstat says of its file, taken before reading so that a change
// while reading shows at the next save; 0 or the errno of the failure.
int ReadVersion(int fd, std::string& text, struct stat& info)
{
    if (::fstat(fd, &info) != 0)
        return errno;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0)
            text.append(buffer, size_t(n));
        else if (n == 0)
            return 0;
        else if (errno != EINTR)
            return errno;
    }
}

bool WriteAll(int fd, const std::string& text)
{
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno != EINTR)
            return false;
        done += n > 0 ? size_t(n) : 0;
    }
    return true;
}

std::string DirectoryOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

// The file that `path` names once the symbolic links of its last component are followed, so that a
// save replaces that file and keeps the links; 0 or the errno. Whatever is not a link (a missing
// file included) is left for opening and saving to report.
int FollowLinks(const std::string& path, std::string& target)
{
    target = path;
    for (int links = 0;; ++links) {
        char buffer[4096];
        const ssize_t n = ::readlink(target.c_str(), buffer, sizeof buffer);
        if (n <= 0)
            return 0;
        if (links == kMostLinks)
            return ELOOP;
        if (size_t(n) == sizeof buffer)
            return ENAMETOOLONG;
        const std::string next(buffer, size_t(n));
        const size_t slash = target.rfind('/');  // a relative link is relative to its own directory
        target = next[0] == '/' || slash == std::string::npos ? next : target.substr(0, slash + 1) + next;
    }
}

// A file is read-only when the caller may not write it, and also when it has no write permission at
// all: a file marked read-only stays so for a privileged user too.
bool IsReadOnly(const std::string& target, mode_t mode)
{
    return (mode & 0222) == 0 || (::faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0 &&
                                  (errno == EACCES || errno == EROFS));
}

enum class Lock { kTaken, kMissing, kBusy, kFailed };

// Opens `target` and takes its edit lock, waiting at most `waitMilliseconds` (polling, with pauses
// growing from 1 to 32 ms). The lock is held on the file that the path names once taken: when a save
// renamed another file over it meanwhile (or it was removed), the wait goes on for the file there now.
Lock TakeLock(const std::string& target, int waitMilliseconds, int& fd, int& code)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline =
        Clock::now() + std::chrono::milliseconds(std::max(waitMilliseconds, 0));
    std::chrono::milliseconds pause(1);
    Descriptor file;
    for (;;) {
        if (file.Get() < 0) {
            file.Reset(::open(target.c_str(), O_RDONLY | O_CLOEXEC));
            if (file.Get() < 0)
                return code = errno, code == ENOENT ? Lock::kMissing : Lock::kFailed;
        }
        if (::flock(file.Get(), LOCK_EX | LOCK_NB) == 0) {
            struct stat held, named;
            if (::fstat(file.Get(), &held) == 0 && ::stat(target.c_str(), &named) == 0 &&
                held.st_dev == named.st_dev && held.st_ino == named.st_ino) {
                fd = file.Release();
                return Lock::kTaken;
            }
            file.Reset();  // replaced or removed while waiting: the file there now is the one to lock
        } else if (errno != EWOULDBLOCK && errno != EINTR) {
            code = errno;
            return Lock::kFailed;
        }
        const Clock::duration left = deadline - Clock::now();
        if (left <= Clock::duration::zero())
            return Lock::kBusy;
        if (file.Get() >= 0) {
            std::this_thread::sleep_for(std::min<Clock::duration>(pause, left));
            pause = std::min(pause * 2, std::chrono::milliseconds(32));
        }
    }
}

// The process id in a temporary file's "<pid>-<n>", or 0 when `tail` is not of that form.
pid_t TemporaryOwner(const char* tail)
{
    long pid = 0;
    const char* c = tail;
    for (; *c >= '0' && *c <= '9' && pid <= INT_MAX; ++c)
        pid = pid * 10 + (*c - '0');
    if (c == tail || *c != '-' || pid > INT_MAX || c[1] == '\0')
        return 0;
    while (*++c != '\0')
        if (*c < '0' || *c > '9')
            return 0;
    return pid_t(pid);
}

// Removes the temporary files that saves of `target` killed before their rename left beside it:
// "<name>.tmp-<pid>-<n>" of a process that no longer exists and locked by no one. Called under the
// edit lock of `target`, so no save of it is under way in any process that keeps to the lock.
void RemoveStaleTemporaries(const std::string& target)
{
    const size_t slash = target.rfind('/');
    const std::string prefix = target.substr(slash == std::string::npos ? 0 : slash + 1) + ".tmp-";
    DIR* directory = ::opendir(DirectoryOf(target).c_str());
    if (directory == nullptr)
        return;
    while (const dirent* entry = ::readdir(directory)) {
        const char* name = entry->d_name;
        if (std::strncmp(name, prefix.c_str(), prefix.size()) != 0)
            continue;
        const pid_t pid = TemporaryOwner(name + prefix.size());
        if (pid <= 0 || ::kill(pid, 0) == 0 || errno != ESRCH)
            continue;
        const Descriptor file(
            ::openat(::dirfd(directory), name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat info;
        if (file.Get() >= 0 && ::fstat(file.Get(), &info) == 0 && S_ISREG(info.st_mode) &&
            ::flock(file.Get(), LOCK_EX | LOCK_NB) == 0)
            ::unlinkat(::dirfd(directory), name, 0);
    }
    ::closedir(directory);
}

class FileProperties final : public qmxhost::StoredProperties<FileProperties> {
public:
    // `lock` is the descriptor holding the edit lock of an editing bag's file (-1 when there was no file).
    FileProperties(std::string path, std::string target, Entries entries, FileIdentity read, bool editing,
                   int lock)
        : StoredProperties(std::move(entries)),
          m_path(std::move(path)),
          m_target(std::move(target)),
          m_editing(editing),
          m_known(read),
          m_lock(lock)
    {
    }

    // Writes the entries to the file; false with the whole message in `message`.
    bool Save(std::string& message);

private:
    friend class qmxhost::StoredProperties<FileProperties>;  // the last Release deletes it
    ~FileProperties() = default;

    bool Fails(std::string& message, const std::string& what) const;
    bool Replace(const std::string& text, const Entries& entries, const struct stat* old,
                 std::string& message);

    const std::string m_path;    // as the caller gave it, for messages
    const std::string m_target;  // the file it names
    const bool m_editing;
    std::mutex m_saving;  // one save at a time; guards the members below
    FileIdentity m_known;
    Descriptor m_lock;
};

// `message` is "<path><what>" (`what` starts with ": " or " "); always false.
bool FileProperties::Fails(std::string& message, const std::string& what) const
{
    message = m_path + what;
    return false;
}

bool FileProperties::Save(std::string& message)
{
    std::lock_guard<std::mutex> saving(m_saving);
    const Entries entries = m_store.Snapshot();
    const std::string text = Serialize(entries);
    const std::string changed = " was changed by another process since it was opened";
    if (!m_known.exists)  // nothing to lock yet: the file is created only if it is still missing
        return Replace(text, entries, nullptr, message);
    Descriptor taken;  // the lock of a bag that holds none, for this save only
    if (m_lock.Get() < 0) {
        int fd = -1, code = 0;
        switch (TakeLock(m_target, kSaveWaitMilliseconds, fd, code)) {
        case Lock::kTaken:
            taken.Reset(fd);
            break;
        case Lock::kMissing:
            return Fails(message, changed);
        case Lock::kBusy:
            return Fails(message, " is being edited by another process");
        case Lock::kFailed:
            return Fails(message, ": " + ErrnoText(code));
        }
    }
    struct stat old;
    if (::stat(m_target.c_str(), &old) != 0)
        return Fails(message, errno == ENOENT ? changed : ": " + ErrnoText(errno));
    if (!(FileIdentity::Of(old) == m_known))
        return Fails(message, changed);
    if (IsReadOnly(m_target, old.st_mode))
        return Fails(message, " is read-only");
    RemoveStaleTemporaries(m_target);
    return Replace(text, entries, &old, message);
}

// Puts `text` (the document of `entries`) in place of the file `old` describes, or creates the file
// when `old` is null: through a temporary file beside it that is written, synced, read back, given the
// old file's mode and owner and locked before it takes the file's name. Any refusal removes the
// temporary file and leaves the target as it was.
bool FileProperties::Replace(const std::string& text, const Entries& entries, const struct stat* old,
                             std::string& message)
{
    static std::atomic<unsigned> counter{0};
    // A save killed earlier may have left its file behind under a name this process would pick
    // again (process ids are reused), so a taken name means: try the next.
    std::string temporary;
    Descriptor file;
    for (int attempt = 0; file.Get() < 0; ++attempt) {
        temporary = m_target + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
        // Private until it has the old file's mode: it is about to hold that file's content.
        file.Reset(::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, old ? 0600 : 0666));
        if (file.Get() < 0 && (errno != EEXIST || attempt == 1000))
            return Fails(message, ": " + ErrnoText(errno));
    }
    const auto refuse = [&](const std::string& what) {
        ::unlink(temporary.c_str());
        return Fails(message, what);
    };
    const auto failed = [&] { return refuse(": " + ErrnoText(errno)); };
    if (::flock(file.Get(), LOCK_EX | LOCK_NB) != 0)
        return failed();
    if (old != nullptr) {
        // Owner before mode: a change of owner clears the set-id bits. A privileged user keeps both
        // ids (or saves nothing); another becomes the owner and keeps the group where it is one of its.
        const bool privileged = ::geteuid() == 0;
        if (privileged && ::fchown(file.Get(), old->st_uid, old->st_gid) != 0)
            return failed();
        if (!privileged && old->st_gid != ::getegid())
            (void)::fchown(file.Get(), uid_t(-1), old->st_gid);
        if (::fchmod(file.Get(), old->st_mode & 07777) != 0)
            return failed();
    }
    if (!WriteAll(file.Get(), text) || ::fsync(file.Get()) != 0)
        return failed();
    // What reopening the file will give: the same bytes, parsed to the same entries.
    std::string back, what;
    struct stat written;
    Entries reread;
    if (::lseek(file.Get(), 0, SEEK_SET) != 0 || (errno = ReadVersion(file.Get(), back, written)) != 0)
        return failed();
    if (back != text || !Parse(back, reread, what) || !(reread == entries))
        return refuse(": the written file does not read back as the bag's entries");
    if (old != nullptr) {
        if (::rename(temporary.c_str(), m_target.c_str()) != 0)
            return failed();
    } else {
        // Only where nothing is: link(2), or where the file system has no links, a rename that
        // replaces nothing.
        int code = ::link(temporary.c_str(), m_target.c_str()) == 0 ? 0 : errno;
        const bool linked = code == 0;
        if (code == EPERM || code == EOPNOTSUPP || code == ENOSYS || code == EMLINK) {
            const int renamed =
                ::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, m_target.c_str(), RENAME_NOREPLACE);
            code = renamed == 0 ? 0 : errno;
        }
        if (code != 0)
            return refuse(code == EEXIST ? ": already exists" : ": " + ErrnoText(code));
        if (linked)
            ::unlink(temporary.c_str());
    }
    // The file is in place: the lock moves to it (an editing bag keeps it, other bags give it back on
    // return) and this version is the one the next save may replace.
    m_known = FileIdentity::Of(written);
    if (m_editing)
        m_lock.Reset(file.Release());
    // The rename is durable only once the directory is synced; some file systems cannot sync one.
    const Descriptor directory(::open(DirectoryOf(m_target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.Get() < 0 || (::fsync(directory.Get()) != 0 && errno != EINVAL && errno != ENOTSUP))
        return Fails(message, ": " + ErrnoText(errno));
    return true;
}

// A bag for `path`: its file read (through the descriptor holding its edit lock when `editing`), or
// empty for a missing file that may be created; null with the whole message in `message` otherwise.
IQMXProperties* OpenBag(const std::string& path, bool createIfMissing, bool editing, int waitMilliseconds,
                        std::string& message)
{
    std::string target;
    int code = FollowLinks(path, target), fd = -1;
    Lock lock = Lock::kFailed;
    if (code == 0 && editing)
        lock = TakeLock(target, waitMilliseconds, fd, code);
    else if (code == 0 && (fd = ::open(target.c_str(), O_RDONLY | O_CLOEXEC)) >= 0)
        lock = Lock::kTaken;  // no lock: only the file, open
    else if (code == 0)
        code = errno, lock = code == ENOENT ? Lock::kMissing : Lock::kFailed;
    if (lock == Lock::kBusy) {
        message = path + " is being edited by another process";
        return nullptr;
    }
    if (lock == Lock::kMissing && createIfMissing)
        return new FileProperties(path, target, Entries(), FileIdentity(), editing, -1);
    if (lock != Lock::kTaken) {
        message = path + ": " + ErrnoText(code);
        return nullptr;
    }
    Descriptor file(fd);
    std::string text, what;
    struct stat read;
    Entries entries;
    if ((code = ReadVersion(file.Get(), text, read)) != 0) {
        what = ErrnoText(code);
    } else if (editing && IsReadOnly(target, read.st_mode)) {
        message = path + " is read-only";
        return nullptr;
    } else {
        try {
            if (Parse(text, entries, what))
                return new FileProperties(path, target, std::move(entries), FileIdentity::Of(read), editing,
                                          editing ? file.Release() : -1);
        } catch (const std::exception& e) {  // the reader's own failures (e.g. nesting too deep)
            what = e.what();
        }
    }
    message = path + ": " + what;
    return nullptr;
}

// OpenBag for the C entry points: a null path, and the message copied out.
IQMXProperties* OpenBag(const char* path, int createIfMissing, bool editing, int waitMilliseconds, char* error,
                        int errorLength)
{
    std::string message = "no file name given";
    IQMXProperties* bag =
        path != nullptr ? OpenBag(path, createIfMissing != 0, editing, waitMilliseconds, message) : nullptr;
    if (bag == nullptr)
        SetError(error, errorLength, message);
    return bag;
}

}  // namespace

extern "C" IQMXProperties* QMXOpenFileProperties(const char* path, int createIfMissing, char* error,
                                                 int errorLength)
{
    return OpenBag(path, createIfMissing, false, 0, error, errorLength);
}

extern "C" IQMXProperties* QMXEditFileProperties(const char* path, int createIfMissing, int waitMilliseconds,
                                                 char* error, int errorLength)
{
    return OpenBag(path, createIfMissing, true, waitMilliseconds, error, errorLength);
}

extern "C" HRESULT QMXSaveFileProperties(IQMXProperties* bag, char* error, int errorLength)
{
    FileProperties* file = FileProperties::From(bag);
    if (file == nullptr) {
        SetError(error, errorLength, "not a file-backed property bag");
        return E_POINTER;
    }
    std::string message;
    if (file->Save(message))
        return S_OK;
    SetError(error, errorLength, message);
    return E_FAIL;
}
