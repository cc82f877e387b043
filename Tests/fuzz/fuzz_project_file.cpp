// The input as a project file (a file-backed property bag holding a track), as
// the command-line host loads and saves it. A file that does not open gives a
// message and stays as it was; one that opens loads a track, saves with it,
// and reopens to the same entries.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "QMXPropertyBag.h"
#include "SegmentCounts.h"
#include "fuzz_common.h"

namespace {

std::string g_path;  // the scratch project file, on a memory file system when there is one

std::string Contents()
{
    std::string text;
    const int fd = ::open(g_path.c_str(), O_RDONLY);
    FUZZ_CHECK(fd >= 0);
    char buffer[65536];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;)
        text.append(buffer, size_t(n));
    ::close(fd);
    return text;
}

void Write(const std::string& text)
{
    const int fd = ::open(g_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    FUZZ_CHECK(fd >= 0 && ::write(fd, text.data(), text.size()) == ssize_t(text.size()));
    ::close(fd);
}

QMXComPtr<IQMXProperties> Open()
{
    char error[512] = "unset";
    QMXComPtr<IQMXProperties> bag;
    bag.Attach(QMXOpenFileProperties(g_path.c_str(), 0, error, sizeof error));
    FUZZ_CHECK(bag || (error[0] != '\0' && std::string(error) != "unset"));
    return bag;
}

void Save(IQMXProperties* bag)
{
    char error[512] = "";
    FUZZ_CHECK(QMXSaveFileProperties(bag, error, sizeof error) == S_OK);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::InstallQuietLogger();
    const char* tmp = std::getenv("TMPDIR");
    const char* dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : tmp != nullptr ? tmp : "/tmp";
    g_path = std::string(dir) + "/qmx-fuzz-" + std::to_string(::getpid()) + ".qmxbag";
    std::atexit([] { ::unlink(g_path.c_str()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    Write(input);
    QMXComPtr<IQMXProperties> bag = Open();
    FUZZ_CHECK(Contents() == input);  // opening never changes the file, opened or not
    if (!bag || !qmxkf::CheckSegmentCounts(bag.Get(), static_cast<long long>(size)).empty())
        return 0;  // the tool refuses it

    // Load the track as the tool does, then save it back.
    QMXComPtr<IQMXKeyFrame> track = fuzz::NewTrack();
    FUZZ_CHECK(fuzz::Storage(track.Get())->ReadFrom(bag.Get()) == S_OK);
    const std::string keys = fuzz::Keys(track.Get());
    FUZZ_CHECK(fuzz::Storage(track.Get())->WriteTo(bag.Get()) == S_OK);
    Save(bag.Get());
    const std::string saved = Contents();

    // Reopened: the same entries, hence the same file when saved again, and
    // the same track when loaded (unless a text holds an infinity, which the
    // reader rejects: that curve then loads new).
    QMXComPtr<IQMXProperties> again = Open();
    FUZZ_CHECK(again);
    FUZZ_CHECK(fuzz::TrackEntries(again.Get()) == fuzz::TrackEntries(bag.Get()));
    Save(again.Get());
    FUZZ_CHECK(Contents() == saved);
    QMXComPtr<IQMXKeyFrame> reloaded = fuzz::NewTrack();
    fuzz::Storage(reloaded.Get())->ReadFrom(again.Get());
    bool readable = true;
    for (int curve = 0; curve < 6; ++curve)
        readable = readable && !fuzz::Unreadable(fuzz::Joined(again.Get(), curve));
    FUZZ_CHECK(!readable || fuzz::Keys(reloaded.Get()) == keys);
    return 0;
}
