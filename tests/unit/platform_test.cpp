// Names of files, why opens fail, whether bytes are locked, profiles and the silent wait, on a real
// folder.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/file.h"
#include "platform/profile.h"
#include "platform/ui.h"
#include "temporary_folder.h"

namespace brenik::platform {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

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
    expect(kMissing, kCreate, {path("NONE/X"), path(std::string(300, 'n'))});
    expect(kWindows ? kMissing : kDenied, kAppendOnly, {path("LOOP")});
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
    EXPECT_EQ(value("\xEF\xBB\xBF[Main]\nName=\xC3\xBC"), kWindows ? "\xFC" : "\xC3\xBC");
}

TEST_F(PlatformTest, LocksOfOthersAreToldAndStayAsTheyAre) {
    const std::string name = write("LOCKED");
    File own = File::open(name, OpenMode::kReadWrite),
         other = File::open(name, OpenMode::kReadWrite);
    const ByteRange range{100, 10};
    const auto told = [&](bool locked) {
        return kWindows ? std::optional<bool>() : std::optional(locked);
    };
    ASSERT_TRUE(own.try_lock(range));
    EXPECT_EQ(own.is_locked(range), told(false)) << "its own lock";
    EXPECT_EQ(other.is_locked({109, 5}), told(true));
    EXPECT_EQ(other.is_locked({110, 5}), told(false));
    own.unlock(range);
    ASSERT_TRUE(own.try_lock(range, LockKind::kShared));
    EXPECT_EQ(other.is_locked({0, 1000}), told(true));
    EXPECT_TRUE(other.try_lock(range, LockKind::kShared)) << "a question locks nothing";
    EXPECT_EQ(File().is_locked(range), std::nullopt);
}

TEST_F(PlatformTest, SilentNoticesStillTakeTheirTime) {
    set_variable("BRENIK_UI", "none");
    const auto start = std::chrono::steady_clock::now();
    make_user_interface()->notice("text", "Title", 30);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    set_variable("BRENIK_UI", "");
}

}  // namespace
}  // namespace brenik::platform
