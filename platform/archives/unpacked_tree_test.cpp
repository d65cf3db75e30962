#include "platform/archives/unpacked_tree.h"

#include <fcntl.h>

#include <sstream>

#include <gtest/gtest.h>

#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {
namespace {

/// Creates the folder NAME/, the link NAME>TARGET, the hard link NAME=ORIGINAL or the file NAME.
TreeStatus create(UnpackedTree& tree, const std::string& item) {
    const std::size_t mark = item.find_first_of(">=");
    const PathComponents path = *componentsOfEntry(item.substr(0, mark), {});
    if (item.ends_with('/')) {
        return tree.createFolder(path, {.mode = 0755});
    }
    if (mark != item.npos) {
        const std::string target = item.substr(mark + 1);
        return item[mark] == '>' ? tree.createLink(path, target, {})
                                 : tree.createHardLink(path, *componentsOfEntry(target, {}));
    }
    auto failure = tree.createFile(path, item == "announced" ? 33 : 0);
    failure = failure ? failure : tree.writeToFile("text", 2);
    return failure ? failure : tree.finishFile(16, {.mode = 0644});
}

TEST(UnpackedTree, RefusesOnlyTheLastItem) {
    using enum TreeFailure::Reason;
    struct Case {
        const char* items;
        TreeFailure::Reason reason;
        UnpackLimits limits = {};
    };
    const Case table[] = {
        {"d/ l>d l/new", BelowFileOrLink},
        {"f f/new", BelowFileOrLink},
        {"l>outside l", Exists},
        {"d/f d/ d/", Exists},
        {"d/ d", Exists},
        {"f f/", Exists},
        {"f f>x", Exists},
        {"f g g=f", Exists},
        {"h=f", NotAnEarlierFile},
        {"l>f f h=l", NotAnEarlierFile},
        {"d/f l>d h=l/f", NotAnEarlierFile},
        {"f h=f g", TooManyItems, {.items = 2}},
        {"1/2/3/4", TooManyItems, {.items = 3}},
        {"d/ l>d", TooManyItems, {.items = 1}},
        {"f g", TooManyBytes, {.bytes = 31}},
        {"f g h", TooManyBytes, {.bytes = 37}},
        {"announced", TooManyBytes, {.bytes = 32}},
    };
    for (const auto& [items, reason, limits] : table) {
        SCOPED_TRACE(items);
        const fixtures::TemporaryFolder root;
        UnpackedTree tree(FileDescriptor(open(root.path().c_str(), O_RDONLY)), limits);
        TreeStatus failure;
        std::istringstream words(items);
        for (std::string item; words >> item;) {
            ASSERT_FALSE(failure) << item;
            failure = create(tree, item);
        }
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->reason, reason);
        EXPECT_FALSE(std::filesystem::exists(root.path() / "outside"));
    }
}

}  // namespace
}  // namespace teravolant::platform
