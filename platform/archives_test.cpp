#include "platform/archives.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

#include "platform/files.h"
#include "testing/temporary_folder.h"

namespace teravolant::platform {
namespace {

namespace fs = std::filesystem;
using fixtures::TemporaryFolder;

constexpr time_t kSomeTime = 1234567890;

struct ArchiveEntry {
    std::string name;
    mode_t mode = S_IFREG | 0644;
    std::string contents = {};  ///< A link's target, a file's bytes.
    bool isHardLink = false;
};

ArchiveEntry link(std::string name, std::string target) {
    return {std::move(name), S_IFLNK | 0777, std::move(target)};
}

ArchiveEntry hardLink(std::string name, std::string target) {
    return {std::move(name), S_IFREG | 0644, std::move(target), true};
}

void writeFile(const fs::path& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

void writeEntry(archive* writer, archive_entry* entry, const ArchiveEntry& described) {
    archive_entry_clear(entry);
    archive_entry_set_pathname(entry, described.name.c_str());
    archive_entry_set_mode(entry, described.mode);
    archive_entry_set_mtime(entry, kSomeTime, 0);
    if (described.isHardLink) {
        archive_entry_set_hardlink(entry, described.contents.c_str());
    } else if (S_ISLNK(described.mode)) {
        archive_entry_set_symlink(entry, described.contents.c_str());
    } else if (S_ISREG(described.mode)) {
        archive_entry_set_size(entry, static_cast<la_int64_t>(described.contents.size()));
    }
    ASSERT_GE(archive_write_header(writer, entry), ARCHIVE_WARN) << archive_error_string(writer);
    if (archive_entry_size(entry) > 0) {
        archive_write_data(writer, described.contents.data(), described.contents.size());
    }
}

struct Format {
    const char* name;
    int format;
    int filter;
};

constexpr Format kPlainTar = {"tar", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_NONE};
constexpr Format kZip = {"zip", ARCHIVE_FORMAT_ZIP, ARCHIVE_FILTER_NONE};
constexpr Format kFormats[] = {
    kPlainTar,
    kZip,
    {"tar.gz", ARCHIVE_FORMAT_TAR_GNUTAR, ARCHIVE_FILTER_GZIP},
    {"tar.xz", ARCHIVE_FORMAT_TAR_USTAR, ARCHIVE_FILTER_XZ},
    {"tar.zst", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_ZSTD},
    {"tar.bz2", ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_BZIP2},
};

void writeArchive(const fs::path& path, const Format& format,
                  const std::vector<ArchiveEntry>& entries) {
    archive* writer = archive_write_new();
    archive_write_set_format(writer, format.format);
    archive_write_add_filter(writer, format.filter);
    ASSERT_EQ(archive_write_open_filename(writer, path.c_str()), ARCHIVE_OK);
    archive_entry* entry = archive_entry_new();
    for (const ArchiveEntry& described : entries) {
        writeEntry(writer, entry, described);
    }
    archive_entry_free(entry);
    ASSERT_EQ(archive_write_free(writer), ARCHIVE_OK);
}

/// What stands below the folder: kind and permissions, contents or target, by relative path.
std::map<std::string, std::string> treeOf(const fs::path& folder) {
    std::map<std::string, std::string> tree;
    for (const auto& item : fs::recursive_directory_iterator(folder)) {
        struct stat status {};
        lstat(item.path().c_str(), &status);
        std::ostringstream text;
        text << std::oct << (S_ISLNK(status.st_mode) ? S_IFLNK : status.st_mode);
        if (item.is_symlink()) {
            text << " -> " << fs::read_symlink(item).string();
        } else if (item.is_regular_file()) {
            text << " " << contentsOfFile(item.path()).value();
        }
        tree[item.path().lexically_relative(folder)] = text.str();
    }
    return tree;
}

/// A folder to unpack into, and things outside it that hostile archives are after.
class Archives : public testing::Test {
  protected:
    Archives() {
        fs::create_directory(target);
        fs::create_directory(outside);
        writeFile(outside / "secret", "untouched");
    }

    std::optional<Error> unpack(const UnpackLimits& limits = {}) {
        return unpackArchive(archive, target, limits);
    }

    TemporaryFolder root;
    fs::path target = root.path() / "target";
    fs::path outside = root.path() / "outside";
    fs::path archive = root.path() / "archive";
};

struct HostileArchive {
    const char* situation;
    std::vector<ArchiveEntry> entries;
    const char* reason;
    bool alsoAsZip = false;
    UnpackLimits limits = {};
};

std::vector<HostileArchive> hostileArchives() {
    const ArchiveEntry large{"1", S_IFREG | 0644, std::string(70, 'x')};
    const ArchiveEntry alsoLarge{"2", S_IFREG | 0644, std::string(70, 'x')};
    std::string deep;
    for (int level = 0; level < 65; ++level) {
        deep += "d/";
    }
    const ArchiveEntry folder{"d", S_IFDIR | 0755};
    const ArchiveEntry file{"f", S_IFREG | 0644, "text"};
    const std::vector<ArchiveEntry> linksAndFile = {link("1", "x"), link("2", "x"), file,
                                                    hardLink("h", "f")};
    return {
        {"upwards", {{"../outside/new"}}, "upwards", true},
        {"upwards later", {folder, {"d/../../outside/new"}}, "upwards", true},
        {"upwards inside", {folder, {"d/../new"}}, "upwards", true},
        {"absolute", {{"/tmp/new"}}, "absolute", true},
        {"absolute folder", {{"//tmp/new", S_IFDIR | 0755}}, "absolute"},
        {"absolute link", {link("l", "/etc/passwd")}, "absolute", true},
        {"link out", {link("l", "../outside/secret")}, "out of the folder", true},
        {"deep link out", {link("d/l", "./../../outside")}, "out of the folder", true},
        {"link out by a link",
         {link("d/e/up", "../.."), link("d/e/out", "up/../outside")},
         "out of the folder",
         true},
        {"empty link", {link("l", "")}, "malformed target"},
        {"file through a link",
         {folder, link("l", "d"), {"l/new"}},
         "below a file or a link",
         true},
        {"folder through a link",
         {folder, link("l", "d"), {"l/new", S_IFDIR | 0755}},
         "below a file or a link"},
        {"link through a link", {folder, link("l", "d"), link("l/m", "x")}, "below a file or a"},
        {"file over a dangling link", {link("l", "new"), {"l"}}, "twice", true},
        {"folder over a link", {folder, link("l", "d"), {"l", S_IFDIR | 0755}}, "twice"},
        {"below a file", {file, {"f/new"}}, "below a file or a link", true},
        {"hard link out", {hardLink("h", "../outside/secret")}, "hard link that leads out"},
        {"absolute hard link", {hardLink("h", "/etc/passwd")}, "hard link that leads out"},
        {"hard link to nothing", {hardLink("h", "f")}, "hard link to something"},
        {"hard link to a link",
         {file, link("l", "f"), hardLink("h", "l")},
         "hard link to something"},
        {"hard link through a link",
         {{"d/f"}, link("l", "d"), hardLink("h", "l/f")},
         "hard link to something"},
        {"hard link to a folder", {folder, hardLink("h", "d")}, "hard link to something"},
        {"hard link over a file", {file, {"g"}, hardLink("g", "f")}, "twice"},
        {"pipe", {{"p", S_IFIFO | 0644}}, "neither a file"},
        {"device", {{"c", S_IFCHR | 0644}}, "neither a file"},
        {"set-user-id file", {{"s", S_IFREG | 04755}}, "set-user-id", true},
        {"set-group-id folder", {{"s", S_IFDIR | 02755}}, "set-user-id", true},
        {"sticky folder", {{"s", S_IFDIR | 01777}}, "set-user-id"},
        {"file twice", {file, file}, "twice", true},
        {"file twice by another name", {file, {"./f"}}, "twice"},
        {"folder twice", {folder, {"d/f"}, folder}, "twice"},
        {"file over a folder", {folder, {"d"}}, "twice"},
        {"folder over a file", {{"d"}, folder}, "twice"},
        {"name that is not UTF-8", {{"\xFF\xFE"}}, "not UTF-8", true},
        {"overlong slash", {{"..\xC0\xAFnew"}}, "not UTF-8"},
        {"link target that is not UTF-8", {link("l", "\xFF")}, "malformed target"},
        {"the folder itself as a file", {{"."}}, "folder itself"},
        {"the folder itself as a link", {link("./.", "d")}, "folder itself"},
        {"long name", {{std::string(1025, 'n')}}, "too long", true},
        {"deep name", {{deep}}, "too deep", true},
        {"too many files", {{"1"}, {"2"}, {"3"}}, "more than 2 items", true, {.items = 2}},
        {"too many folders on the way", {{"1/2/3/4"}}, "more than 3 items", true, {.items = 3}},
        {"too many links", linksAndFile, "more than 3 items", false, {.items = 3}},
        {"one large file", {large}, "more than 64 bytes", true, {.bytes = 64}},
        {"files that are large together",
         {large, alsoLarge},
         "more than 139 bytes",
         true,
         {.bytes = 139}},
    };
}

TEST_F(Archives, ThatAreHostileAreRefusedAndReachNothingOutside) {
    for (const HostileArchive& hostile : hostileArchives()) {
        for (const Format& format : {kPlainTar, kZip}) {
            if (format.format == ARCHIVE_FORMAT_ZIP && !hostile.alsoAsZip) {
                continue;
            }
            SCOPED_TRACE(std::string(hostile.situation) + " as " + format.name);
            fs::remove_all(target);
            writeArchive(archive, format, hostile.entries);
            const auto before = treeOf(root.path());
            fs::create_directory(target);
            const auto error = unpack(hostile.limits);
            std::uint64_t unpacked = 0;
            for (const auto& item : fs::recursive_directory_iterator(target)) {
                unpacked += item.is_regular_file() ? item.file_size() : 0;
            }
            fs::remove_all(target);
            EXPECT_EQ(treeOf(root.path()), before);
            EXPECT_LE(unpacked, hostile.limits.bytes);
            ASSERT_TRUE(error);
            EXPECT_EQ(error->domain, NSCocoaErrorDomain);
            const bool isTooLarge = std::string_view(hostile.reason).starts_with("more than");
            EXPECT_EQ(error->code,
                      isTooLarge ? NSFileReadTooLargeError : NSFileReadCorruptFileError);
            EXPECT_NE(error->localizedDescription.find(hostile.reason), std::string::npos)
                << error->localizedDescription;
        }
    }
}

TEST_F(Archives, OfEveryFormatAreUnpackedWithModesLinksAndTimes) {
    for (const Format& format : kFormats) {
        SCOPED_TRACE(format.name);
        fs::remove_all(target);
        fs::create_directory(target);
        // The folder that its owner may not write comes before what is in it.
        std::vector<ArchiveEntry> entries = {{"./", S_IFDIR | 0700},
                                             {"sealed", S_IFDIR | 0555},
                                             {"sealed/run", S_IFREG | 0751, "program"},
                                             {"a/b/é e\xCC\x81", S_IFREG | 0400, ""},
                                             link("a/b/l", "../../sealed/./run"),
                                             {"empty", S_IFDIR | 0770},
                                             {"a", S_IFDIR | 0710}};
        std::map<std::string, std::string> expected = {{"sealed", "40555"},
                                                       {"sealed/run", "100751 program"},
                                                       {"a", "40710"},
                                                       {"a/b", "40755"},
                                                       {"a/b/é e\xCC\x81", "100400 "},
                                                       {"a/b/l", "120000 -> ../../sealed/./run"},
                                                       {"empty", "40770"}};
        if (format.format != ARCHIVE_FORMAT_ZIP) {
            entries.push_back(hardLink("twin", "sealed/run"));
            expected["twin"] = "100751 program";
        }
        writeArchive(archive, format, entries);
        const auto error = unpack();
        ASSERT_FALSE(error) << error->localizedDescription;
        EXPECT_EQ(treeOf(target), expected);
        for (const char* name : {"sealed", "sealed/run", "a/b/l", "a"}) {
            EXPECT_EQ(
                attributesOfItem(target / name).value().fileModificationDate.time_since_epoch(),
                std::chrono::seconds(kSomeTime))
                << name;
        }
        fs::permissions(target / "sealed", fs::perms::owner_all);
    }
}

TEST_F(Archives, ThatAreCutShortAreRefusedWhereverTheCut) {
    for (const Format& format : kFormats) {
        writeArchive(archive, format,
                     {{"a", S_IFREG | 0644, std::string(3000, 'a')}, {"b", S_IFREG | 0644, "b"}});
        std::string whole = contentsOfFile(archive).value();
        std::size_t step = std::max<std::size_t>(whole.size() / 40, 1);
        if (format.name == std::string("tar")) {
            whole.resize(512 + 3072 + 512 + 512 + 1);  // up to the mark that ends the archive
            step = 128;                                // so that some cuts fall between entries
        }
        for (std::size_t length = 0; length < whole.size() - 1; length += step) {
            fs::remove_all(target);
            fs::create_directory(target);
            writeFile(archive, std::string_view(whole).substr(0, length));
            EXPECT_TRUE(unpack()) << format.name << " of " << length << " bytes";
        }
    }
}

TEST_F(Archives, AreNotUnpackedIntoAFolderThatHoldsSomethingOrIsALink) {
    writeArchive(archive, kPlainTar, {{"a"}});
    EXPECT_TRUE(unpackArchive(archive, outside));
    EXPECT_FALSE(fs::exists(outside / "a"));
    fs::create_directory_symlink(target, root.path() / "link");
    EXPECT_TRUE(unpackArchive(archive, root.path() / "link"));
    EXPECT_TRUE(fs::is_empty(target));
}

TEST_F(Archives, HoldFoldersThatTheirOwnerMayNotSearch) {
    writeArchive(archive, kPlainTar,
                 {{"shut", S_IFDIR | 0600}, {"shut/inner", S_IFDIR | 0710}, {"shut/inner/file"}});
    const auto error = unpack();
    ASSERT_FALSE(error) << error->localizedDescription;
    EXPECT_EQ(fs::status(target / "shut").permissions(), fs::perms(0600));
    fs::permissions(target / "shut", fs::perms::owner_all);
    EXPECT_EQ(fs::status(target / "shut/inner").permissions(), fs::perms(0710));
}

TEST_F(Archives, StopWhenAsked) {
    writeArchive(archive, kPlainTar, {{"a"}});
    std::stop_source source;
    source.request_stop();
    const auto error = unpackArchive(archive, target, {}, source.get_token());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, NSUserCancelledError);
    EXPECT_TRUE(fs::is_empty(target));
}

}  // namespace
}  // namespace teravolant::platform
