#include "platform/archives/unpacked_tree.h"

#include <fcntl.h>

#include <sstream>
#include <tuple>

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
    auto failure = tree.createFile(path, item == "announced" ? 32 : 0);
    failure = failure ? failure : tree.writeToFile("text", 2);
    return failure ? failure : tree.finishFile(16, {.mode = 0644});
}

TEST(UnpackedTree, RefusesOnlyTheLastItem) {
    using enum TreeFailure::Reason;
    const std::tuple<TreeFailure::Reason, std::vector<const char*>, UnpackLimits> table[] = {
        {BelowFileOrLink, {"d/ l>d l/new", "f f/new"}, {}},
        {Exists, {"l>outside l", "d/f d/ d/", "d/ d", "f f/", "f f>x", "f g g=f"}, {}},
        {NotAnEarlierFile, {"h=f", "l>f f h=l", "d/f l>d h=l/f"}, {}},
        {TooManyItems, {"f h=f g", "d/ f l>d", "1/2/3"}, {.items = 2}},
        {TooManyBytes, {"f g", "announced"}, {.bytes = 31}},
        {TooManyBytes, {"f g h"}, {.bytes = 37}}};
    for (const auto& [reason, lists, limits] : table) {
        for (const char* list : lists) {
            SCOPED_TRACE(list);
            const fixtures::TemporaryFolder root;
            UnpackedTree tree(FileDescriptor(open(root.path().c_str(), O_RDONLY)), limits);
            TreeStatus failure;
            std::istringstream words(list);
            for (std::string item; words >> item;) {
                ASSERT_FALSE(failure) << item;
                failure = create(tree, item);
            }
            ASSERT_TRUE(failure);
            EXPECT_EQ(failure->reason, reason);
            EXPECT_FALSE(std::filesystem::exists(root.path() / "outside"));
        }
    }
}

}  // namespace
}  // namespace teravolant::platform
