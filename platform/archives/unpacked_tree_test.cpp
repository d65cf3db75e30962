#include "platform/archives/unpacked_tree.h"

#include <fcntl.h>

#include <gtest/gtest.h>

#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {
namespace {

using Reason = TreeFailure::Reason;
using Step = std::function<TreeStatus(UnpackedTree&)>;

PathComponents path(const std::string& text) { return *componentsOfEntry(text, {}); }

Step folder(std::string name) {
    return [=](UnpackedTree& tree) { return tree.createFolder(path(name), {.mode = 0755}); };
}

Step link(std::string name, std::string target) {
    return [=](UnpackedTree& tree) { return tree.createLink(path(name), target, {}); };
}

Step hardLink(std::string name, std::string original) {
    return [=](UnpackedTree& tree) { return tree.createHardLink(path(name), path(original)); };
}

/// Writes its bytes after the hole, and announces a hole of 10 bytes after them.
Step file(std::string name, std::uint64_t hole = 0, std::uint64_t announced = 0) {
    return [=](UnpackedTree& tree) {
        auto failure = tree.createFile(path(name), announced);
        failure = failure ? failure : tree.writeToFile("text", hole);
        return failure ? failure : tree.finishFile(hole + 14, {.mode = 0644});
    };
}

TEST(UnpackedTree, FailsAtTheStepThatIsNotAllowed) {
    struct Case {
        const char* situation;
        std::vector<Step> steps;  ///< Only the last one fails.
        Reason reason;
        UnpackLimits limits = {};
    };
    const Case table[] = {
        {"below a link", {folder("d"), link("l", "d"), file("l/new")}, Reason::BelowFileOrLink},
        {"below a file", {file("f"), file("f/new")}, Reason::BelowFileOrLink},
        {"over a dangling link", {link("l", "outside"), file("l")}, Reason::Exists},
        {"folder twice", {file("d/f"), folder("d"), folder("d")}, Reason::Exists},
        {"file over a folder", {folder("d"), file("d")}, Reason::Exists},
        {"folder over a file", {file("f"), folder("f")}, Reason::Exists},
        {"link over a file", {file("f"), link("f", "x")}, Reason::Exists},
        {"hard link over a file", {file("f"), file("g"), hardLink("g", "f")}, Reason::Exists},
        {"hard link to nothing", {hardLink("h", "f")}, Reason::NotAnEarlierFile},
        {"hard link to a link", {link("l", "f"), hardLink("h", "l")}, Reason::NotAnEarlierFile},
        {"hard link through a link",
         {file("d/f"), link("l", "d"), hardLink("h", "l/f")},
         Reason::NotAnEarlierFile},
        {"items", {file("f"), hardLink("h", "f"), file("g")}, Reason::TooManyItems, {.items = 2}},
        {"parent folders", {file("1/2/3/4")}, Reason::TooManyItems, {.items = 3}},
        {"link", {folder("d"), link("l", "d")}, Reason::TooManyItems, {.items = 1}},
        {"holes", {file("f", 2), file("g", 3)}, Reason::TooManyBytes, {.bytes = 32}},
        {"announced size", {file("f", 0, 33)}, Reason::TooManyBytes, {.bytes = 32}},
    };
    for (const Case& tested : table) {
        SCOPED_TRACE(tested.situation);
        const fixtures::TemporaryFolder around;
        const auto root = around.path() / "root";
        std::filesystem::create_directory(root);
        UnpackedTree tree(FileDescriptor(open(root.c_str(), O_RDONLY)), tested.limits);
        TreeStatus failure;
        for (const Step& step : tested.steps) {
            ASSERT_FALSE(failure);
            failure = step(tree);
        }
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->reason, tested.reason);
        EXPECT_FALSE(std::filesystem::exists(root / "outside"));
    }
}

}  // namespace
}  // namespace teravolant::platform
