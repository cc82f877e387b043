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
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <string>
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

// The file bags alive in this process, so that a save can tell them from bags of other kinds.
struct LiveBags {
    std::mutex mutex;
    std::set<const IQMXProperties*> bags;
};
LiveBags& Live()
{
    static LiveBags* live = new LiveBags;  // never destroyed: bags may outlive static destruction
    return *live;
}

class FileProperties final : public qmxhost::StoredProperties<FileProperties> {
public:
    FileProperties(std::string path, Entries entries)
        : StoredProperties(std::move(entries)), m_path(std::move(path))
    {
        std::lock_guard<std::mutex> lock(Live().mutex);
        Live().bags.insert(this);
    }
    const std::string& Path() const { return m_path; }
    Entries Snapshot() const { return m_store.Snapshot(); }

    // The file bag behind `bag`, or null for a bag of another kind.
    static FileProperties* From(IQMXProperties* bag)
    {
        std::lock_guard<std::mutex> lock(Live().mutex);
        return Live().bags.count(bag) != 0 ? static_cast<FileProperties*>(bag) : nullptr;
    }

private:
    friend class qmxhost::StoredProperties<FileProperties>;  // the last Release deletes it
    ~FileProperties()
    {
        std::lock_guard<std::mutex> lock(Live().mutex);
        Live().bags.erase(this);
    }

    const std::string m_path;
};

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

bool IsScalarValue(uint32_t unit)
{
    return unit != 0 && unit <= 0x10FFFF && (unit < 0xD800 || unit > 0xDFFF);
}

bool IsUnicode(const std::wstring& text)
{
    for (wchar_t unit : text)
        if (!IsScalarValue(static_cast<uint32_t>(unit)))
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
    for (size_t i = 0; i < in.size();) {
        const unsigned char lead = static_cast<unsigned char>(in[i++]);
        int extra = 0;
        uint32_t cp = lead, minimum = 0;
        if (lead >= 0x80) {
            if ((lead & 0xE0) == 0xC0)
                extra = 1, cp = lead & 0x1F, minimum = 0x80;
            else if ((lead & 0xF0) == 0xE0)
                extra = 2, cp = lead & 0x0F, minimum = 0x800;
            else if ((lead & 0xF8) == 0xF0)
                extra = 3, cp = lead & 0x07, minimum = 0x10000;
            else
                return false;
        }
        for (; extra > 0; --extra, ++i) {
            if (i == in.size() || (static_cast<unsigned char>(in[i]) & 0xC0) != 0x80)
                return false;
            cp = cp << 6 | (static_cast<unsigned char>(in[i]) & 0x3F);
        }
        if (cp < minimum || !IsScalarValue(cp))
            return false;
        out += static_cast<wchar_t>(cp);
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

enum class ReadResult { kRead, kMissing, kFailed };

ReadResult ReadFile(const std::string& path, std::string& text, int& code)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return code = errno, code == ENOENT ? ReadResult::kMissing : ReadResult::kFailed;
    char buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            text.append(buffer, size_t(n));
        } else if (n == 0) {
            ::close(fd);
            return ReadResult::kRead;
        } else if (errno != EINTR) {
            code = errno;
            ::close(fd);
            return ReadResult::kFailed;
        }
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

// Writes `text` beside `path`, syncs it and renames it over `path`; 0 or the errno of the failure, with
// the temporary file removed.
int ReplaceFile(const std::string& path, const std::string& text)
{
    static std::atomic<unsigned> counter{0};
    // A save killed earlier may have left its file behind under a name this process would pick
    // again (process ids are reused), so a taken name means: try the next.
    std::string temporary;
    int fd = -1;
    for (int attempt = 0; fd < 0; ++attempt) {
        temporary = path + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
        fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0 && (errno != EEXIST || attempt == 1000))
            return errno;
    }
    struct stat old;
    if (::stat(path.c_str(), &old) == 0 && S_ISREG(old.st_mode))
        (void)::fchmod(fd, old.st_mode & 07777);  // keeps the file's mode; best effort
    int code = 0;
    if (!WriteAll(fd, text) || ::fsync(fd) != 0)
        code = errno;
    if (::close(fd) != 0 && code == 0)
        code = errno;
    if (code == 0 && ::rename(temporary.c_str(), path.c_str()) != 0)
        code = errno;
    if (code != 0) {
        ::unlink(temporary.c_str());
        return code;
    }
    // The rename is durable only once the directory is synced; some file systems cannot sync one.
    const int dir = ::open(DirectoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0)
        return errno;
    if (::fsync(dir) != 0 && errno != EINVAL && errno != ENOTSUP)
        code = errno;
    ::close(dir);
    return code;
}

}  // namespace

extern "C" IQMXProperties* QMXOpenFileProperties(const char* path, int createIfMissing, char* error,
                                                 int errorLength)
{
    if (path == nullptr) {
        SetError(error, errorLength, "no file name given");
        return nullptr;
    }
    std::string text;
    int code = 0;
    Entries entries;
    std::string what;
    switch (ReadFile(path, text, code)) {
    case ReadResult::kMissing:
        if (createIfMissing)
            return new FileProperties(path, Entries());
        what = ErrnoText(code);
        break;
    case ReadResult::kFailed:
        what = ErrnoText(code);
        break;
    case ReadResult::kRead:
        try {
            if (Parse(text, entries, what))
                return new FileProperties(path, std::move(entries));
        } catch (const std::exception& e) {  // the reader's own failures (e.g. nesting too deep)
            what = e.what();
        }
        break;
    }
    SetError(error, errorLength, std::string(path) + ": " + what);
    return nullptr;
}

extern "C" HRESULT QMXSaveFileProperties(IQMXProperties* bag, char* error, int errorLength)
{
    FileProperties* file = bag != nullptr ? FileProperties::From(bag) : nullptr;
    if (file == nullptr) {
        SetError(error, errorLength, "not a file-backed property bag");
        return E_POINTER;
    }
    const int code = ReplaceFile(file->Path(), Serialize(file->Snapshot()));
    if (code == 0)
        return S_OK;
    SetError(error, errorLength, file->Path() + ": " + ErrnoText(code));
    return E_FAIL;
}
