// Files, sharing, locks, profiles and the clock-driven wait, on a real folder.

#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#endif

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/clock.h"
#include "platform/file.h"
#include "platform/profile.h"
#include "platform/ui.h"
#include "temporary_folder.h"

namespace brenik::platform {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using Clock = std::chrono::steady_clock;

#ifdef _WIN32
constexpr bool kWindows = true;
void set_variable(const char* name, const char* value) { _putenv_s(name, value); }
#else
constexpr bool kWindows = false;
void set_variable(const char* name, const char* value) { setenv(name, value, 1); }
#endif

class PlatformTest : public testing::Test {
  protected:
    std::string write(const std::string& name, const std::string& content = "content") {
        std::ofstream(folder_ / name, std::ios::binary) << content;
        return path(name);
    }
    std::string path(const std::string& name) const { return (folder_ / name).string(); }

    TemporaryFolder folder_;
};

TEST_F(PlatformTest, OpensTellWhyTheyFail) {
    const std::string plain = write("PLAIN");
    const std::string fixed = write("FIXED");
    fs::permissions(fixed, fs::perms::owner_read);
    fs::create_directory(path("FOLDER"));
    if (!kWindows) fs::create_symlink("LOOP", path("LOOP"));
    using enum OpenMode;
    using enum OpenFailure;
    const auto expect = [](OpenFailure failure, OpenMode mode,
                           const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            EXPECT_EQ(File::open(name, mode).failure(), failure) << name.substr(0, 200);
        }
    };
    expect(kNone, kReadWrite, {plain});
    expect(kNone, kReadOnly, {fixed});
    expect(kDenied, kReadWrite, {fixed});
    expect(kDenied, kCreate, {fixed, path("FOLDER")});
    expect(kMissing, kReadOnly, {path("LOOP"), "", plain + "\0"s, path("\xFF\x01*?")});
    const std::string longer(100'000, 'n');
    expect(kMissing, kCreate, {path("NONE/X"), path(longer.substr(0, 300)), longer});
    expect(kWindows ? kMissing : kDenied, kAppendOnly, {path("LOOP")});
    expect(kWindows ? kMissing : kDenied, kAppend, {std::string(100'000, '\\')});
    EXPECT_EQ(fs::file_size(fixed), 7u);
}

TEST_F(PlatformTest, NamesAreFoundWhateverTheirCase) {
    fs::create_directories(path("Data/Billing"));
    write("Data/Billing/BOLink.INI");
    write("Data/twin");
    write("Data/TWIN");
    // Windows finds a name as it is given.
    const auto found = [&](const char* given, const char* on_disk) {
        return kWindows ? (folder_ / fs::path(given).make_preferred()).string() : path(on_disk);
    };
    for (const auto& [given, on_disk] :
         {std::pair{"DATA\\billing\\bolink.ini", "Data/Billing/BOLink.INI"},
          {"data\\NEW\\File", "Data/NEW/File"},
          {"data/twin", "Data/twin"},
          {"data/Twin", "Data/TWIN"}}) {
        EXPECT_EQ(system_path(path(given)), found(given, on_disk));
    }
    EXPECT_TRUE(file_exists(path("data\\Billing\\BOLINK.ini")));
    EXPECT_FALSE(file_exists(path("data\\Billing")));
    EXPECT_EQ(File::open(path("DATA/BILLING/bolink.ini"), OpenMode::kAppend).path(),
              found("DATA/BILLING/bolink.ini", "Data/Billing/BOLink.INI"));
}

TEST_F(PlatformTest, OpensOfTwoFilesExcludeEachOtherByTheirSharing) {
    using enum OpenMode;
    const std::string name = write("TABLE");
    const auto failure = [&](OpenMode mode, Sharing sharing = Sharing::kShared) {
        return File::open(name, mode, sharing).failure();
    };
    {
        const File shared = File::open(name, kReadWrite);
        EXPECT_EQ(failure(kReadOnly), OpenFailure::kNone);
        EXPECT_EQ(failure(kReadWrite, Sharing::kExclusive), OpenFailure::kSharing);
        EXPECT_EQ(failure(kCreate, Sharing::kExclusive), OpenFailure::kSharing);
        EXPECT_EQ(shared.size(), 7u) << "a refused creation leaves the file alone";
    }
    File exclusive = File::open(name, kReadOnly, Sharing::kExclusive);
    EXPECT_EQ(failure(kReadOnly), OpenFailure::kSharing);
    EXPECT_EQ(failure(kAppend), kWindows ? OpenFailure::kSharing : OpenFailure::kNone);
    const File moved = std::move(exclusive);
    EXPECT_EQ(failure(kReadWrite), OpenFailure::kSharing);
    exclusive = File();
    EXPECT_TRUE(moved.is_open());
}

TEST_F(PlatformTest, LocksOfTwoFilesExcludeEachOther) {
    constexpr std::uint64_t kFar = 1ull << 40;
    const std::string name = write("TABLE");
    File one = File::open(name, OpenMode::kReadWrite);
    File two = File::open(name, OpenMode::kReadWrite);
    ASSERT_TRUE(one.try_lock({kFar, 10}));
    EXPECT_FALSE(two.try_lock({kFar + 9, 1}));
    EXPECT_FALSE(two.try_lock({kFar, 1}, LockKind::kShared));
    EXPECT_TRUE(two.try_lock({kFar + 10, 1}));
    EXPECT_FALSE(one.try_lock({kFar + 10, 1}));

    const auto start = Clock::now();
    EXPECT_FALSE(two.lock_within({kFar, 1}, LockKind::kExclusive, 60));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(60));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(30)) << "milliseconds, not seconds";

    one.unlock({kFar, 0});
    EXPECT_FALSE(two.try_lock({kFar, 1})) << "no bytes were unlocked";
    File::open(name, OpenMode::kReadOnly).close();
    EXPECT_FALSE(two.try_lock({kFar, 1})) << "another open's end drops no lock";
    one.unlock({kFar, 10});
    EXPECT_TRUE(one.try_lock({kFar, 1}, LockKind::kShared));
    EXPECT_TRUE(two.try_lock({kFar, 1}, LockKind::kShared));
    one.close();
    EXPECT_TRUE(two.lock_within({kFar + 1, 1}, LockKind::kExclusive, 0));
    EXPECT_THROW(static_cast<void>(two.try_lock({~0ull, 1})), FileError);
}

#ifndef _WIN32

// Whether a child of a fork, which does nothing else, finds this.
template <class Work>
bool child_finds(Work work) {
    const pid_t child = fork();
    if (child == 0) _exit(work() ? 0 : 1);
    int status = -1;
    return waitpid(child, &status, 0) == child && status == 0;
}

TEST_F(PlatformTest, FilesAndLocksStayWithTheProcessThatForks) {
    const std::string name = write("TABLE");
    File file = File::open(name, OpenMode::kReadWrite);
    File other = File::open(name, OpenMode::kReadWrite);
    ASSERT_TRUE(file.try_lock({9, 1}));
    EXPECT_TRUE(child_finds([&] {
        const File own = File::open(name, OpenMode::kReadWrite);  // has the number of `file`
        file.unlock({9, 1});
        bool refused = false;
        try {
            file.write_at(0, std::vector<std::uint8_t>(7));
        } catch (const FileError&) {
            refused = true;
        }
        file.close();
        return refused && own.size() == 7;
    }));
    EXPECT_FALSE(other.try_lock({9, 1}));
}

TEST_F(PlatformTest, AForkBesideAnotherThreadsOpensTakesNoneAlong) {
    const std::string name = write("TABLE");
    struct stat table;
    ASSERT_EQ(stat(name.c_str(), &table), 0);
    std::atomic<bool> done = false;
    std::thread opener([&] {
        while (!done) File::open(name, OpenMode::kReadWrite);
    });
    const auto has_none = [&] {
        struct stat facts;
        for (int i = 0; i < 64; ++i) {
            if (fstat(i, &facts) == 0 && facts.st_ino == table.st_ino) return false;
        }
        return true;
    };
    int right = 0;
    for (int i = 0; i < 200; ++i) right += child_finds(has_none);
    done = true;
    opener.join();
    EXPECT_EQ(right, 200);
}

#endif

TEST_F(PlatformTest, ReadsEndAtTheFileAndFailuresNameTheirPlace) {
    File file = File::open(path("NEW"), OpenMode::kCreate);
    const std::vector<std::uint8_t> bytes = {1, 2, 3, 4};
    file.write_at(6, bytes);
    file.resize(8);
    file.sync();
    std::vector<std::uint8_t> buffer(9, 0xEE);
    EXPECT_EQ(file.read_at(0, buffer), 8u);
    EXPECT_EQ(buffer, (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 1, 2, 0xEE}));
    EXPECT_EQ(file.read_at(1ull << 50, buffer), 0u);
    EXPECT_THROW(file.read_at(~0ull, buffer), FileError);

    File log = File::open(path("NEW"), OpenMode::kAppend);
    log.write_at(0, bytes);
    EXPECT_EQ(file.size(), 12u) << "appended, whatever the offset";

    File read_only = File::open(path("NEW"), OpenMode::kReadOnly);
    try {
        read_only.write_at(5, bytes);
        ADD_FAILURE() << "written through a read-only open";
    } catch (const FileError& error) {
        EXPECT_EQ(error.what(),
                  path("NEW") + ": write at offset 5 failed: " +
                      (kWindows ? "Access denied, system error 5" : "Bad file descriptor"));
        EXPECT_EQ(error.offset(), 5u);
    }
    file.close();
    EXPECT_THROW(file.size(), FileError);
}

TEST_F(PlatformTest, ProfilesAreReadAsWindowsReadsThem) {
    const std::string profile = write(
        "LAWSYS.INI",
        "stray=0\r\n; [Main]\r\n  [ Main ] trailing\r\n;FirmName=comment\nno equals sign\n"
        " FirmName \t= \" Ives & Sons \"  \nfirmname=second\nSingle='it''s'\r\nLone=\"\nEmpty=\n"
        "A=B=C\nbytes=a\0b\xE9\n[Other]\nOnly=there\n[MAIN]\nLate=x\n[Broken\nBelow=1\n"
        "[Last]\nEnd=5\x1A"s);
    const auto main = [&](const char* key) {
        return profile_string("main", key, "default", profile);
    };
    EXPECT_EQ(main("FIRMNAME"), " Ives & Sons ");
    EXPECT_EQ(main("Single"), "it''s");
    EXPECT_EQ(main("Lone") + main("Empty"), "\"");
    EXPECT_EQ(main("A"), "B=C");
    EXPECT_EQ(main("bytes"), kWindows ? "a"s : "a\0b\xE9"s);
    for (const char* key : {"stray", "Only", "Late", "Below"})
        EXPECT_EQ(main(key), "default") << key;
    EXPECT_EQ(profile_string("Mai", "FirmName", "default", profile), "default");
    EXPECT_EQ(profile_string("Last", "End", "default", profile), "5");
    for (const std::string& odd :
         {path("NONE.INI"), folder_.string(), ""s, write("EMPTY.INI", "")}) {
        EXPECT_EQ(profile_string("Main", "x", "default", odd), "default");
    }
    EXPECT_EQ(profile_string("Main", "x", "default", write("FLAT.INI", "x=1\n")), "default");
    std::string unreadable;
    profile_string("Main", "x", "", path("NONE.INI"), &unreadable);
    EXPECT_EQ(unreadable, "");
    profile_string("Main", "x", "", folder_.string(), &unreadable);
    EXPECT_EQ(unreadable.find(folder_.string() + ": "), 0u) << unreadable;
}

TEST_F(PlatformTest, ProfilesWithAMarkAreReadInTheCodePage) {
    const auto value = [&](const std::string& bytes) {
        return profile_string("main", "name", "default", write("MARKED.INI", bytes));
    };
    const auto wide = [](const std::u16string& text, bool big) {
        std::string bytes;
        for (const char16_t unit : text) {
            const char halves[] = {static_cast<char>(unit), static_cast<char>(unit >> 8)};
            bytes.append({halves[big], halves[!big]});
        }
        return bytes;
    };
    const std::u16string section = u"\uFEFF[Main]\r\n", filler(100'000, u'\u0A0A');
    // Text, in UTF-8, and as the ANSI code page 1252 has it, as far as it is tested.
    const std::tuple<std::u16string, std::string, std::string> cases[] = {
        {u"M\u00FCller \u20AC", "M\xC3\xBCller \xE2\x82\xAC", "M\xFCller \x80"},
        {u"\u4E2D|\U0001D11E|", "\xE4\xB8\xAD|\xF0\x9D\x84\x9E|", ""},
        {u"a\xD800z\xDC00\xDC00", "a?z??", "a?z??"},
        {u"\xD834", "?", "?"},
        {u"\u010D\u0A0D", "\xC4\x8D\xE0\xA8\x8D", ""}};
    for (const auto& [given, utf8, ansi] : cases) {
        const std::string& expected = kWindows ? ansi : utf8;
        for (const bool big : {false, true}) {
            const std::string found =
                value(wide(section + u";" + filler + u"\n NAME = \"" + given + u"\" \r\nz=1", big));
            EXPECT_EQ(expected.empty() ? "" : found, expected) << big;
            EXPECT_EQ(value(wide(section + u"name=" + given, big) + "\x0D"), found + "?");
        }
    }
    const std::pair<const char*, const char*> broken[] = {
        {"a\xC3", "a?"}, {"\xC0\x8A", "??"},      {"\xE2\x82z", "??z"},
        {"x'\n", "x'"},  {"\xED\xA0\x80", "???"}, {"\xF5z\xF4\x90\x80\x80", "?z????"}};
    for (const auto& [bytes, expected] : broken) {
        EXPECT_EQ(value("\xEF\xBB\xBF[Main]\nName="s + bytes), expected);
    }
    EXPECT_EQ(value("\xEF\xBB\xBF[Main]\nName=\xC3\xBC"), kWindows ? "\xFC" : "\xC3\xBC");
    for (const char* mark : {"\xFF\xFE", "\xFE\xFF", "\xEF\xBB\xBF", "\xFF\xFEx"}) {
        EXPECT_EQ(value(mark), "default");
    }
}

TEST_F(PlatformTest, SilentNoticesStillTakeTheirTime) {
    for (const char* mode : {"none", "stderr", "gui"}) {
        set_variable("BRENIK_UI", mode);
        const auto ui = make_user_interface();
        testing::internal::CaptureStderr();
        const auto start = Clock::now();
        ui->notice("first\r\nsecond\x1B[1m\r\n", "Title", 30);
        EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(30));
        const std::string shown = testing::internal::GetCapturedStderr();
        EXPECT_EQ(shown, mode == "none"s ? "" : "Title: first\nsecond.[1m\n");
    }
    set_variable("BRENIK_UI", "");
}

}  // namespace
}  // namespace brenik::platform
