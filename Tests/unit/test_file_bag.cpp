// The host runtime's property bags: entries kept exactly in memory and in a file, the document a file bag
// writes, the values they hand out; refused files and saves, editors of one file, links, modes, owners.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <tuple>
#include <vector>

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
std::string Bytes(const std::string& path) { return {std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {}}; }
struct FileBag : testing::Test {  // a scratch directory and a file name in it
    TempDir dir;
    const std::string path = dir / "f.qmxbag";
};

using Got = std::tuple<HRESULT, std::wstring, std::wstring, HRESULT, int>;  // GetProperty, then GetInt
Got Get(IQMXProperties* bag, const std::wstring& name)  // on a value and a number that hold "t", "keep", 7
{
    CQMXValue v;
    v.m_strType = L"t", v.m_strValue = L"keep";
    int n = 7;
    const HRESULT hr = bag->GetProperty(name.c_str(), &v), hi = bag->GetInt(name.c_str(), &n);
    return Got(hr, v.m_strType, v.m_strValue, hi, n);
}

}  // namespace

// A file bag counts from 1 and keeps names and texts of any 32-bit units (non-ASCII, outside the BMP, not
// Unicode, empty, case kept) and integers at their limits exactly; storing replaces value and kind; a miss,
// or GetInt on a text, is E_FAIL with the value untouched; QMXRemoveProperty removes. It writes its entries
// sorted, one per line, UTF-8 kept (units where not Unicode); opening writes nothing, and saving again what
// was read gives the same bytes. (The memory bag holds the same store: the bag fuzz replay and the track's
// storage tests drive it.)
TEST_F(FileBag, KeepsEntriesExactly)
{
    const std::vector<std::tuple<std::wstring, std::wstring, std::wstring>> want = {
        {L"", L"string", L""}, {L"KeyFrameAngle", L"int", L"-2147483648"}, {L"s", L"string", L"5"},
        {L"bad\xD800", L"string", {L'a', wchar_t(0xDFFF), wchar_t(0x110000), wchar_t(-1)}},
        {L"Ünïcødé €", L"string", L"\U0001F600 \"q\"\\\n\t"}, {L"ünïcødé €", L"string", L"a\U0001D11Eb"},
        {L"\U0001D11E", L"int", L"2147483647"}};
    const auto check = [&](IQMXProperties* bag) {
        for (const auto& [name, type, text] : want)
            EXPECT_EQ(Get(bag, name), Got(S_OK, type, text, type == L"int" ? S_OK : E_FAIL,
                                           type == L"int" ? std::stoi(text) : 7));
        for (const wchar_t* missing : {L"Ünïcødé", L"\U0001D11F", L"bad", L"gone"})
            EXPECT_EQ(Get(bag, missing), Got(E_FAIL, L"t", L"keep", E_FAIL, 7));
    };
    IQMXProperties* file = QMXOpenFileProperties(path.c_str(), 1, nullptr, 0);
    EXPECT_TRUE(file->AddRef() == 2 && file->Release() == 1);
    EXPECT_TRUE(file->SetString(L"KeyFrameAngle", L"x") == S_OK && file->SetInt(L"s", 5) == S_OK);  // replaced
    EXPECT_TRUE(file->SetInt(L"gone", 1) == S_OK && QMXRemoveProperty(file, L"gone") == S_OK);
    EXPECT_TRUE(QMXRemoveProperty(file, L"gone") == E_FAIL && QMXRemoveProperty(file, nullptr) == E_POINTER);
    for (const auto& [n, type, v] : want)
        EXPECT_EQ(type == L"int" ? file->SetInt(n.c_str(), stoi(v)) : file->SetString(n.c_str(), &v[0]), S_OK);
    check(file);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(QMXSaveFileProperties(file, nullptr, 0) == S_OK && file->Release() == 0);
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
    {"name": "ünïcødé €", "string": "a𝄞b"},
    {"name": "𝄞", "int": 2147483647}
  ]
}
)");
    ASSERT_NE(file = QMXOpenFileProperties(path.c_str(), 0, nullptr, 0), nullptr);
    check(file);
    EXPECT_TRUE(QMXSaveFileProperties(file, nullptr, 0) == S_OK && Bytes(path) == text && file->Release() == 0);
    EXPECT_EQ(dir.Names(), std::set<fs::path>{path});
}

// Counts references without ever destroying itself; `text` is its address as an interface-typed value has it.
struct Counted : IUnknown {
    int refs = 1;  // the reference a value built field by field hands back when it goes
    wchar_t text[64];
    Counted() { std::swprintf(text, 64, L"Interface:%p", static_cast<void*>(this)); }
    HRESULT QueryInterface(const _GUID&, void** ppv) override { *ppv = nullptr; return E_NOINTERFACE; }
    uint32_t AddRef() override { return static_cast<uint32_t>(++refs); }
    uint32_t Release() override { return static_cast<uint32_t>(--refs); }
};

// An interface-typed value owns one reference: assignment and copying add one, destruction and reassignment
// drop it; release ignores the type's case, referencing does not; equality by text only.
TEST(BagValue, InterfaceReferences)
{
    const wchar_t* kType = L"CQMXPtr<IUnknown>";
    // Sets type t and text s directly: no reference is taken, yet one is released when `v` goes if t matches.
    const auto fill = [](CQMXValue& v, const wchar_t* t, const wchar_t* s) -> auto& {
        return v.m_strType = t, v.m_strValue = s, v;
    };
    Counted a, b;
    {
        CQMXValue rawA, rawB, v, other;
        const CQMXValue& self = (v = fill(rawA, kType, a.text));
        v = self;
        EXPECT_EQ(a.refs, 2);
        EXPECT_TRUE([&] { const CQMXValue copy(v); return a.refs == 3 && copy == v; }());  // while it lives
        v = fill(rawB, kType, b.text);
        EXPECT_EQ(std::make_pair(a.refs, b.refs), std::make_pair(1, 2));
        v = fill(other, L"int", L"5");
        EXPECT_EQ(std::make_pair(a.refs, b.refs), std::make_pair(1, 1));
        EXPECT_EQ(v.m_strType + L"=" + v.m_strValue, L"int=5");
        EXPECT_TRUE(v == fill(other, L"string", L"5") && !(v == fill(other, L"int", a.text)));
        v = fill(other, kType, L"5");  // no pointer in the text: nothing referenced or released
    }
    EXPECT_EQ(std::make_pair(a.refs, b.refs), std::make_pair(0, 0));
    a.refs = 2;
    EXPECT_TRUE(([&] { CQMXValue lo, v; v = fill(lo, L"cqmxptr<iunknown>", a.text); return a.refs == 2; }()));
    EXPECT_EQ(a.refs, 0);  // not referenced by the assignment, yet released by both values
}

// Damaged and foreign files are refused, with or without createIfMissing: null and "<path>: <what>". (The
// file kept as it was: the tool's tests.)
TEST_F(FileBag, RefusesDamagedAndForeignFiles)
{
    const std::string h = R"({"format": "qmxbag", "version": 1, "entries": [)";
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
            const std::string got = error;
            EXPECT_TRUE(got.rfind(path + ": ", 0) == 0 && got.find(fragment) != got.npos) << text << " -> " << got;
        }
    }
}

// A missing file is an error unless it may be created; none can be below a file or be a directory. An editor
// that creates its file holds the file's edit lock from that save on. Failed saves give E_FAIL, "<path>:
// <reason>", leave no temporary file; other bags give E_POINTER. Errors are cut at a character's boundary.
// (Editors of an existing file, waiting and taking turns: the tool's concurrent writers.)
TEST_F(FileBag, MissingFilesAndFailedSaves)
{
    char error[200];
    std::ofstream(dir / "file") << "";
    const std::string gone = dir / "é.qmxbag", noEntry = gone + ": " + std::strerror(ENOENT);
    const std::pair<std::string, std::string> refused[] = {
        {gone, noEntry}, {dir / "file/x", dir / "file/x: " + strerror(ENOTDIR)},
        {dir.path, dir.path + ": " + strerror(EISDIR)}};
    for (const auto& [file, message] : refused) {
        EXPECT_EQ(QMXOpenFileProperties(file.c_str(), file != gone, error, sizeof error), nullptr);
        EXPECT_EQ(error, message);
    }
    const int cut = int(noEntry.find("é")) + 2;  // room for the path up to the first byte of "é"
    EXPECT_TRUE(!QMXOpenFileProperties(gone.c_str(), 0, error, cut) && error == noEntry.substr(0, cut - 2));
    EXPECT_TRUE(!QMXOpenFileProperties(gone.c_str(), 0, error, 1) && !*error);
    EXPECT_EQ(QMXOpenFileProperties(gone.c_str(), 0, nullptr, 9), nullptr);
    IQMXProperties* bag = QMXEditFileProperties(gone.c_str(), 1, 0, nullptr, 0);  // an empty bag, saved and read
    EXPECT_EQ(QMXSaveFileProperties(bag, nullptr, 0), S_OK);
    EXPECT_EQ(QMXEditFileProperties(gone.c_str(), 0, 50, error, sizeof error), nullptr);
    EXPECT_EQ(error, gone + " is being edited by another process");
    EXPECT_EQ(bag->Release(), 0u);
    EXPECT_EQ(Bytes(gone), "{\n  \"format\": \"qmxbag\",\n  \"version\": 1,\n  \"entries\": []\n}\n");
    ASSERT_NE(bag = QMXOpenFileProperties(gone.c_str(), 0, nullptr, 0), nullptr);
    EXPECT_TRUE(bag->GetProperty(L"", nullptr) == E_POINTER && bag->Release() == 0);
    for (const auto& [file, code] : {std::pair(dir / "no/x", ENOENT), std::pair(dir / "d", EEXIST)}) {
        bag = QMXOpenFileProperties(file.c_str(), 1, error, sizeof error);
        ASSERT_NE(bag, nullptr) << error;
        if (code == EEXIST)
            fs::create_directory(file);  // after opening: the save creates nothing in its place
        EXPECT_EQ(QMXSaveFileProperties(bag, error, sizeof error), E_FAIL);
        EXPECT_EQ(error, file + ": " + (code == EEXIST ? "already exists" : strerror(code)));
        EXPECT_EQ(bag->Release(), 0u);
    }
    EXPECT_EQ(dir.Names(), (std::set<fs::path>{gone, dir / "d", dir / "file"}));
    IQMXProperties* memory = QMXCreateMemoryProperties();
    for (IQMXProperties* foreign : {memory, (IQMXProperties*)nullptr}) {
        EXPECT_EQ(QMXSaveFileProperties(foreign, error, sizeof error), E_POINTER);
        EXPECT_STREQ(error, "not a file-backed property bag");
    }
    int other = 0;  // a bag of another kind (or none) is never called
    EXPECT_EQ(QMXRemoveProperty(reinterpret_cast<IQMXProperties*>(&other), L"a"), E_POINTER);
    EXPECT_EQ(memory->Release(), 0u);
}

// A save that would lose someone else's work, or write a read-only file, is refused with one line and
// leaves the file byte for byte and no temporary file; a read-only file is not opened for editing.
TEST_F(FileBag, RefusesSavesThatWouldLoseWork)
{
    const std::string readOnly = " is read-only",
                      changed = " was changed by another process since it was opened";
    const auto put = [](const std::string& file) {
        std::ofstream(file) << R"({"format": "qmxbag", "version": 1, "entries": []})";
    };
    const std::pair<std::function<void()>, std::string> rows[] = {
        {[&] { put(path); }, changed},  // written in place
        {[&] { put(path + ".new"), fs::rename(path + ".new", path); }, changed},  // replaced
        {[&] { fs::permissions(path, fs::perms(0444)); }, readOnly}};  // for a privileged user too
    for (const auto& [behind, message] : rows) {
        IQMXProperties* bag = QMXOpenFileProperties(path.c_str(), 1, nullptr, 0);
        ASSERT_EQ(QMXSaveFileProperties(bag, nullptr, 0), S_OK);
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

// Saves through a chain of relative symbolic links replace the file at its end and keep the links and (for a
// privileged user) the file's owner, and remove temporary files of killed saves only. (The file's mode, a
// link beside its file and one bag's saves in turn: the tool's tests.)
TEST_F(FileBag, SavesKeepLinksAndOwner)
{
    const std::string link = dir / "sub/l2", live = path + ".tmp-1-0";
    IQMXProperties* bag = QMXOpenFileProperties(path.c_str(), 1, nullptr, 0);
    ASSERT_TRUE(QMXSaveFileProperties(bag, nullptr, 0) == S_OK && bag->Release() == 0);
    fs::create_directory(dir / "sub");
    fs::create_symlink("f.qmxbag", dir / "l1");
    fs::create_symlink("../l1", link);
    const bool root = geteuid() == 0;
    EXPECT_EQ(root ? chown(path.c_str(), 4321, 4321) : 0, 0);
    for (const std::string& stale : {live, path + ".tmp-" + std::to_string(INT_MAX) + "-0"})
        std::ofstream(stale) << "";  // process 1 lives; INT_MAX is past every process id
    ASSERT_NE(bag = QMXOpenFileProperties(link.c_str(), 0, nullptr, 0), nullptr);
    EXPECT_TRUE(bag->SetInt(L"k", 2) == S_OK && QMXSaveFileProperties(bag, nullptr, 0) == S_OK);
    EXPECT_EQ(bag->Release(), 0u);
    struct stat info {};
    EXPECT_TRUE(stat(path.c_str(), &info) == 0 && (!root || (info.st_uid == 4321 && info.st_gid == 4321)));
    EXPECT_NE(Bytes(path).find("\"int\": 2"), std::string::npos);
    EXPECT_TRUE(fs::is_symlink(dir / "l1") && fs::is_symlink(link));
    EXPECT_EQ(dir.Names(), (std::set<fs::path>{dir / "l1", dir / "sub", path, live}));
}
