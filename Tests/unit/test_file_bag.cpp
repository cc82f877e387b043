// The file-backed bag: the document it writes, round trips, a track through a file, refused files, saves,
// editors of one file.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXPropertyBag.h"

namespace fs = std::filesystem;
namespace {

struct TempDir {  // a new directory, removed with its contents
    std::string path = (fs::temp_directory_path() / "qmxbag-XXXXXX").string();
    TempDir() { EXPECT_NE(mkdtemp(path.data()), nullptr); }
    ~TempDir() { fs::remove_all(path); }
    std::string operator/(const std::string& name) const { return path + "/" + name; }
    std::set<fs::path> Names() const { return {fs::directory_iterator(path), fs::directory_iterator()}; }
};
std::string Bytes(const std::string& path)
{
    return {std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {}};
}
using Entry = std::tuple<HRESULT, std::wstring, std::wstring>;  // GetProperty: result, type, text

}  // namespace

// Names and texts of any 32-bit units, integers at their limits: written sorted, one per line, UTF-8 kept
// (units where not Unicode), read back exactly; opening writes nothing, saving again gives the same bytes.
TEST(FileBag, KeepsEntriesExactlyThroughAFile)
{
    TempDir dir;
    const std::string path = dir / "a.qmxbag";
    IQMXProperties* bag = QMXOpenFileProperties(path.c_str(), 1, nullptr, 0);
    ASSERT_NE(bag, nullptr);
    EXPECT_TRUE(bag->AddRef() == 2 && bag->Release() == 1);
    const std::vector<std::tuple<std::wstring, std::wstring, std::wstring>> want = {
        {L"", L"string", L""}, {L"KeyFrameAngle", L"int", L"-2147483648"}, {L"s", L"string", L"5"},
        {L"bad\xD800", L"string", {L'a', wchar_t(0xDFFF), wchar_t(0x110000), wchar_t(-1)}},
        {L"Ünïcødé €", L"string", L"\U0001F600 \"q\"\\\n\t"}, {L"\U0001D11E", L"int", L"2147483647"}};
    EXPECT_TRUE(bag->SetString(L"KeyFrameAngle", L"x") == S_OK && bag->SetInt(L"s", 5) == S_OK);  // replaced
    for (const auto& [n, type, v] : want)
        EXPECT_EQ(type == L"int" ? bag->SetInt(n.c_str(), stoi(v)) : bag->SetString(n.c_str(), &v[0]), S_OK);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(QMXSaveFileProperties(bag, nullptr, 0) == S_OK && bag->Release() == 0);
    const std::string text = Bytes(path);
    EXPECT_EQ(text, u8R"({
  "format": "qmxbag",
  "version": 1,
  "entries": [
    {"name": "", "string": ""},
    {"name": "KeyFrameAngle", "int": -2147483648},
    {"nameUnits": [98, 97, 100, 55296], "units": [97, 57343, 1114112, 4294967295]},
    {"name": "s", "string": "5"},
    {"name": "Ünïcødé €", "string": "😀 \"q\"\\\n\t"},
    {"name": "𝄞", "int": 2147483647}
  ]
}
)");
    ASSERT_NE(bag = QMXOpenFileProperties(path.c_str(), 0, nullptr, 0), nullptr);
    for (const auto& [name, type, value] : want) {
        CQMXValue v;
        const HRESULT hr = bag->GetProperty(name.c_str(), &v);
        EXPECT_EQ(Entry(hr, v.m_strType, v.m_strValue), Entry(S_OK, type, value));
    }
    CQMXValue v;
    EXPECT_TRUE(bag->GetProperty(L"bad", &v) == E_FAIL && Bytes(path) == text);
    EXPECT_TRUE(QMXSaveFileProperties(bag, nullptr, 0) == S_OK && Bytes(path) == text && bag->Release() == 0);
    EXPECT_EQ(dir.Names(), std::set<fs::path>{dir / "a.qmxbag"});
}

// A track written to a file bag, saved and read back into a new track has the same keys, bit for bit.
TEST(FileBag, TrackSurvivesAFile)
{
    TempDir dir;
    IQMXKeyFrame *first = nullptr, *second = nullptr;
    IQMXStorage *out = nullptr, *in = nullptr;
    for (auto [track, store] : {std::pair(&first, &out), std::pair(&second, &in)}) {
        ASSERT_EQ(QMXCommon::GetInterface(CLSID_QMXKeyFrame, nullptr, 0, IID_IQMXKeyFrame, (void**)track),
                  S_OK);
        ASSERT_EQ((*track)->QueryInterface(IID_IQMXStorage, (void**)store), S_OK);
    }
    for (int i = 0; i < 40; ++i) {
        KeyFrameParam p{i * 0.04, i * 1.1, -i / 3.0, 7.0 * i, 1 + i % 7 * 0.125, 0.5, (i % 11) / 10.0};
        ASSERT_TRUE(first->AddKeyFrame(p));
    }
    IQMXProperties* bag = QMXOpenFileProperties((dir / "t.qmxbag").c_str(), 1, nullptr, 0);
    EXPECT_TRUE(out->WriteTo(bag) == S_OK && QMXSaveFileProperties(bag, nullptr, 0) == S_OK);
    EXPECT_EQ(bag->Release(), 0u);
    ASSERT_NE(bag = QMXOpenFileProperties((dir / "t.qmxbag").c_str(), 0, nullptr, 0), nullptr);
    EXPECT_TRUE(in->ReadFrom(bag) == S_OK && bag->Release() == 0);
    ASSERT_EQ(second->GetKeyFrameCount(), 40);
    for (int i = 0; i < 40; ++i) {
        KeyFrameParam a{}, b{};
        EXPECT_TRUE(first->GetKeyFrame(i, a) && second->GetKeyFrame(i, b));
        EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0) << i;
    }
    EXPECT_TRUE(in->Release() == 1 && second->Release() == 0 && out->Release() == 1 && first->Release() == 0);
}

// Damaged and foreign files are refused, with or without createIfMissing: null, "<path>: <what>", file kept.
TEST(FileBag, RefusesDamagedAndForeignFiles)
{
    TempDir dir;
    const std::string path = dir / "x.qmxbag", h = R"({"format": "qmxbag", "version": 1, "entries": [)";
    const auto e = [&](const std::string& entries) { return h + entries + "]}"; };
    const std::pair<std::string, const char*> rows[] = {
        {"", "line 1, column 1: Syntax error"}, {h + "\n{\"name\": \"a\", \"int\": 1}\n", "line 3, column 1"},
        {e("") + " x", "line 1, column 51: Extra non-whitespace"}, {"[1]", "not a property bag"},
        {R"({"format": "qmx"})", "not a property bag (no \"format\": \"qmxbag\")"},
        {R"({"format": "qmxbag", "entries": []})", "no \"version\""},
        {R"({"format": "qmxbag", "version": 2, "entries": []})", "unsupported version 2"},
        {R"({"format": "qmxbag", "version": "1", "entries": []})", "unsupported version \"1\""},
        {R"({"format": "qmxbag", "version": 1})", "\"entries\" is not an array"},
        {h + "], \"more\": 1}", "unexpected member \"more\""},
        {h + "], \"entries\": []}", "line 1, column 51: Duplicate key: 'entries'"},
        {e("1"), "entry 1: not an object"}, {e(R"({"int": 1})"), "entry 1: no \"name\""},
        {e(R"({"name": "a"})"), "entry 1: no value"}, {e(R"({"name": 1, "int": 1})"), "\"name\" is not a"},
        {e(R"({"name": "a", "nameUnits": [97], "int": 1})"), "entry 1: more than one name"},
        {e(R"({"name": "a", "int": 1, "string": "1"})"), "entry 1: more than one value"},
        {e(R"({"name": "a", "int": 1, "x": 1})"), "entry 1: unexpected member \"x\""},
        {e(R"({"name": "a", "int": 2147483648})"), "entry 1: \"int\" is out of range"},
        {e(R"({"name": "a", "int": -2147483649})"), "entry 1: \"int\" is out of range"},
        {e(R"({"name": "a", "int": 1.0})"), "\"int\" is not an integer"},
        {e(R"({"name": "\u0000"})"), "\"name\" is not valid UTF-8"},  // a zero, a lone surrogate, overlong
        {e(R"({"name": "\udc00"})"), "\"name\" is not valid UTF-8"},
        {e("{\"name\": \"\xC0\xAF\"}"), "\"name\" is not valid UTF-8"},
        {e(R"({"name": "a", "units": [0]})"), "\"units\" is not an array of code units from 1 to 4294967295"},
        {e(R"({"nameUnits": [4294967296], "int": 1})"), "\"nameUnits\" is not an array of code units"},
        {e(R"({"name": "a", "int": 1}, {"nameUnits": [97], "string": ""})"), "entry 2: duplicate name \"a\""},
        {e(R"({"nameUnits": [65, 56320], "int": 1}, {"nameUnits": [65, 56320], "int": 1})"),
         "entry 2: duplicate name \"A\xEF\xBF\xBD\""}};
    for (const auto& [text, fragment] : rows) {
        std::ofstream(path) << text;
        for (int create : {0, 1}) {
            char error[200] = "untouched";
            EXPECT_EQ(QMXOpenFileProperties(path.c_str(), create, error, sizeof error), nullptr) << text;
            EXPECT_EQ(std::string(error).rfind(path + ": ", 0), 0u) << error;
            EXPECT_NE(std::string(error).find(fragment), std::string::npos) << text << " -> " << error;
            EXPECT_EQ(Bytes(path), text);
        }
    }
}

// A missing file is an error unless it may be created; none can be below a file or be a directory. Failed
// saves give E_FAIL, "<path>: <reason>", leave no temporary file; other bags give E_POINTER. Errors are cut.
TEST(FileBag, MissingFilesAndFailedSaves)
{
    TempDir dir;
    char error[200];
    std::ofstream(dir / "file") << "";
    fs::create_directory(dir / "locked");
    fs::permissions(dir / "locked", fs::perms::owner_read | fs::perms::owner_exec);
    const std::string gone = dir / "é.qmxbag", noEntry = gone + ": " + std::strerror(ENOENT);
    const std::pair<std::string, std::string> refused[] = {
        {gone, noEntry}, {dir / "file/x", dir / "file/x: " + strerror(ENOTDIR)},
        {dir.path, dir.path + ": " + strerror(EISDIR)}};
    for (const auto& [path, message] : refused) {
        EXPECT_EQ(QMXOpenFileProperties(path.c_str(), path != gone, error, sizeof error), nullptr);
        EXPECT_EQ(error, message);
    }
    const int cut = int(noEntry.find("é")) + 2;  // room for the path up to the first byte of "é"
    EXPECT_TRUE(!QMXOpenFileProperties(gone.c_str(), 0, error, cut) && error == noEntry.substr(0, cut - 2));
    EXPECT_TRUE(!QMXOpenFileProperties(gone.c_str(), 0, error, 1) && !*error);
    EXPECT_EQ(QMXOpenFileProperties(gone.c_str(), 0, nullptr, 9), nullptr);
    IQMXProperties* bag = QMXOpenFileProperties(gone.c_str(), 1, nullptr, 0);  // an empty bag, saved and read
    EXPECT_TRUE(QMXSaveFileProperties(bag, nullptr, 0) == S_OK && bag->Release() == 0);
    EXPECT_EQ(Bytes(gone), "{\n  \"format\": \"qmxbag\",\n  \"version\": 1,\n  \"entries\": []\n}\n");
    ASSERT_NE(bag = QMXOpenFileProperties(gone.c_str(), 0, nullptr, 0), nullptr);
    EXPECT_TRUE(bag->GetProperty(L"", nullptr) == E_POINTER && bag->Release() == 0);
    const bool locked = access((dir / "locked").c_str(), W_OK) != 0;  // not so for a privileged user
    const std::pair<std::string, int> rows[] = {{dir / "no/x", ENOENT}, {dir / "d", EEXIST},
                                                {dir / "locked/x", EACCES}};
    for (const auto& [path, code] : rows) {
        bag = QMXOpenFileProperties(path.c_str(), 1, error, sizeof error);
        ASSERT_NE(bag, nullptr) << error;
        if (code == EEXIST)
            fs::create_directory(path);  // after opening: the save creates nothing in its place
        if (code != EACCES || locked) {
            EXPECT_EQ(QMXSaveFileProperties(bag, error, sizeof error), E_FAIL);
            EXPECT_EQ(error, path + ": " + (code == EEXIST ? "already exists" : strerror(code)));
        }
        EXPECT_EQ(bag->Release(), 0u);
    }
    EXPECT_EQ(dir.Names(), (std::set<fs::path>{gone, dir / "d", dir / "file", dir / "locked"}));
    IQMXProperties* memory = QMXCreateMemoryProperties();
    for (IQMXProperties* other : {memory, (IQMXProperties*)nullptr}) {
        EXPECT_EQ(QMXSaveFileProperties(other, error, sizeof error), E_POINTER);
        EXPECT_STREQ(error, "not a file-backed property bag");
    }
    EXPECT_EQ(memory->Release(), 0u);
}

// One editor at a time, in this process or another: a second one is refused after its wait with
// "<path> is being edited by another process" and gets the file once the first is gone.
TEST(FileBag, OneEditorAtATime)
{
    TempDir dir;
    const std::string path = dir / "e.qmxbag";
    IQMXProperties* bag = QMXOpenFileProperties(path.c_str(), 1, nullptr, 0);
    ASSERT_TRUE(QMXSaveFileProperties(bag, nullptr, 0) == S_OK && bag->Release() == 0);
    for (const bool otherProcess : {false, true}) {
        int ready[2], done[2];
        char error[200] = "", c = 0;
        ASSERT_TRUE(pipe(ready) == 0 && pipe(done) == 0);
        const pid_t child = otherProcess ? fork() : -1;
        const auto edit = [&] {  // and keeps editing across a save
            bag = QMXEditFileProperties(path.c_str(), 0, 0, nullptr, 0);
            return bag != nullptr && QMXSaveFileProperties(bag, nullptr, 0) == S_OK;
        };
        if (child == 0) {  // holds the lock until told to go (or the test is gone)
            close(done[1]);
            c = edit() ? 'y' : 'n';
            _exit(write(ready[1], &c, 1) == 1 && read(done[0], &c, 1) == 1 ? 0 : 1);
        }
        ASSERT_TRUE(otherProcess ? read(ready[0], &c, 1) == 1 && c == 'y' : edit());
        EXPECT_EQ(QMXEditFileProperties(path.c_str(), 0, 50, error, sizeof error), nullptr);
        EXPECT_EQ(error, path + " is being edited by another process");
        int status = 0;
        if (otherProcess)
            EXPECT_TRUE(write(done[1], "x", 1) == 1 && waitpid(child, &status, 0) == child && status == 0);
        else
            EXPECT_EQ(bag->Release(), 0u);
        ASSERT_NE(bag = QMXEditFileProperties(path.c_str(), 0, 5000, error, sizeof error), nullptr) << error;
        EXPECT_EQ(bag->Release(), 0u);
        for (int fd : {ready[0], ready[1], done[0], done[1]})
            close(fd);
    }
}

// An editor that creates its file holds it from then on, and keeps it across a save, which puts a new
// file in its place: a waiter that got the replaced file's lock waits on for the new one and reads what
// was saved there.
TEST(FileBag, WaiterReadsTheHoldersSave)
{
    TempDir dir;
    const std::string path = dir / "w.qmxbag";
    IQMXProperties *holder = QMXEditFileProperties(path.c_str(), 1, 0, nullptr, 0), *waiter = nullptr;
    ASSERT_EQ(QMXSaveFileProperties(holder, nullptr, 0), S_OK);
    std::thread wait([&] { waiter = QMXEditFileProperties(path.c_str(), 0, 20000, nullptr, 0); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the waiter has opened the first file
    EXPECT_TRUE(holder->SetInt(L"n", 2) == S_OK && QMXSaveFileProperties(holder, nullptr, 0) == S_OK);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // ... and locked it, now it is replaced
    EXPECT_EQ(holder->Release(), 0u);
    wait.join();
    int n = 0;
    ASSERT_NE(waiter, nullptr);
    EXPECT_TRUE(waiter->GetInt(L"n", &n) == S_OK && n == 2 && waiter->Release() == 0);
}

// A save that would lose someone else's work, or write a read-only file, is refused with one line and
// leaves the file byte for byte and no temporary file; a read-only file is not opened for editing.
TEST(FileBag, RefusesSavesThatWouldLoseWork)
{
    TempDir dir;
    const std::string path = dir / "r.qmxbag", readOnly = " is read-only",
                      changed = " was changed by another process since it was opened";
    const auto put = [](const std::string& file) {
        std::ofstream(file) << R"({"format": "qmxbag", "version": 1, "entries": []})";
    };
    const std::tuple<bool, std::function<void()>, std::string> rows[] = {
        {false, [&] { put(path); }, ": already exists"},
        {true, [&] { put(path); }, changed},  // written in place
        {true, [&] { put(path + ".new"), fs::rename(path + ".new", path); }, changed},  // replaced
        {true, [&] { fs::permissions(path, fs::perms(0444)); }, readOnly}};  // for a privileged user too
    for (const auto& [exists, behind, message] : rows) {
        IQMXProperties* bag = QMXOpenFileProperties(path.c_str(), 1, nullptr, 0);
        ASSERT_EQ(!exists || QMXSaveFileProperties(bag, nullptr, 0) == S_OK, true);
        behind();
        const std::string before = Bytes(path);
        char error[200] = "";
        EXPECT_EQ(bag->SetInt(L"x", 1), S_OK);
        EXPECT_EQ(QMXSaveFileProperties(bag, error, sizeof error), E_FAIL);
        EXPECT_EQ(error, path + message);
        EXPECT_TRUE(Bytes(path) == before && dir.Names() == std::set<fs::path>{path} && bag->Release() == 0);
        if (message == readOnly) {
            EXPECT_EQ(QMXEditFileProperties(path.c_str(), 0, 0, error, sizeof error), nullptr);
            EXPECT_EQ(error, path + message);
        }
        fs::remove(path);
    }
}

// Saves through a chain of relative symbolic links replace the file at its end and keep the links, the
// file's mode and (for a privileged user) its owner, and remove temporary files of killed saves only.
TEST(FileBag, SavesKeepLinksModeAndOwner)
{
    TempDir dir;
    const std::string target = dir / "t.qmxbag", link = dir / "sub/l2", live = target + ".tmp-1-0";
    IQMXProperties* bag = QMXOpenFileProperties(target.c_str(), 1, nullptr, 0);
    ASSERT_TRUE(QMXSaveFileProperties(bag, nullptr, 0) == S_OK && bag->Release() == 0);
    fs::create_directory(dir / "sub");
    fs::create_symlink("t.qmxbag", dir / "l1");
    fs::create_symlink("../l1", link);
    fs::permissions(target, fs::perms(0640));
    const bool root = geteuid() == 0;
    EXPECT_EQ(root ? chown(target.c_str(), 4321, 4321) : 0, 0);
    for (const std::string& stale : {live, target + ".tmp-" + std::to_string(INT_MAX) + "-0"})
        std::ofstream(stale) << "";  // process 1 lives; INT_MAX is past every process id
    for (int edit : {0, 1}) {
        bag = edit ? QMXEditFileProperties(link.c_str(), 0, 0, nullptr, 0)
                   : QMXOpenFileProperties(link.c_str(), 0, nullptr, 0);
        ASSERT_NE(bag, nullptr);
        for (int save : {1, 2})  // the second replaces the file the first wrote
            EXPECT_TRUE(bag->SetInt(L"k", edit * 10 + save) == S_OK &&
                        QMXSaveFileProperties(bag, nullptr, 0) == S_OK);
        EXPECT_EQ(bag->Release(), 0u);
        struct stat info {};
        EXPECT_TRUE(stat(target.c_str(), &info) == 0 && (info.st_mode & 07777) == 0640);
        EXPECT_TRUE(!root || (info.st_uid == 4321 && info.st_gid == 4321));
        EXPECT_NE(Bytes(target).find("\"int\": " + std::to_string(edit * 10 + 2)), std::string::npos);
    }
    EXPECT_TRUE(fs::is_symlink(dir / "l1") && fs::is_symlink(link));
    EXPECT_EQ(dir.Names(), (std::set<fs::path>{dir / "l1", dir / "sub", target, live}));
}

// QMXRemoveProperty removes entries from either bag of this runtime: E_FAIL for a missing one, E_POINTER
// for a null argument or a bag of another kind (never called).
TEST(FileBag, RemovesEntriesFromTheRuntimesBags)
{
    TempDir dir;
    const std::string path = dir / "m";
    for (IQMXProperties* bag : {QMXCreateMemoryProperties(), QMXOpenFileProperties(path.c_str(), 1, 0, 0)}) {
        CQMXValue v;
        EXPECT_TRUE(bag->SetInt(L"a", 1) == S_OK && bag->SetString(L"b", L"x") == S_OK);
        EXPECT_TRUE(QMXRemoveProperty(bag, L"a") == S_OK && QMXRemoveProperty(bag, L"a") == E_FAIL);
        EXPECT_TRUE(bag->GetProperty(L"a", &v) == E_FAIL && bag->GetProperty(L"b", &v) == S_OK);
        EXPECT_TRUE(QMXRemoveProperty(bag, nullptr) == E_POINTER && bag->Release() == 0);
    }
    int other = 0;
    EXPECT_EQ(QMXRemoveProperty(reinterpret_cast<IQMXProperties*>(&other), L"a"), E_POINTER);
    EXPECT_EQ(QMXRemoveProperty(nullptr, L"a"), E_POINTER);
}
