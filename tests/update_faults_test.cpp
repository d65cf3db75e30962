// Whole update cycles that meet faulty servers, hostile archives and interrupted downloads.
#include "tests/update_fixture.h"

namespace teravolant {
namespace {

using namespace fixtures;

TEST(FaultyServer, IsAnErrorThatNamesTheFault) {
    const auto feed = [](const ServerAnswer& answer) {
        return [=](Update& update) { update.feedAnswers.assign(11, answer); };
    };
    expectEachRefused({
        {"404", feed({404}), "status 404"},
        {"empty", feed({200}), "status 200 and an empty body"},
        {"HTML", feed({.body = "<!DOCTYPE html>"}), "Update check failed"},
        {"2 MiB", feed({.body = std::string(2'097'152, ' '), .chunked = true}), "larger than"},
        {"redirect loop", feed({302, {{"Location", "feed"}}}), "redirect"},
        {"no archive", [](Update& u) { u.archiveAnswers = {{404}}; }, "status 404: http://127"},
        {"longer, not announced",
         [](Update& u) { u.archiveAnswers = {{.body = u.archive + '\n', .chunked = true}}; },
         "sends more than"},
    });
}

TEST(HostileArchive, IsRefusedAndChangesNothing) {
    // Runs a shell command beside the executable of the published bundle.
    const auto after = [](const char* command) {
        return [=](Update& update) {
            const fs::path folder = update.executable.parent_path();
            runToEndOfOutput("/bin/sh", {"-c", std::string("cd \"$0\" && ") + command, folder});
            update.publish();
        };
    };
    constexpr const char* kNotRun = "its executable is not there or can't be run";
    expectEachRefused({
        {"older", after("sed -i s/1.0.0.2/0.9.0.0/ ../Info.plist"), "is 0.9.0.0 where"},
        {"other product", after("sed -i s/com.zelto/other/ ../Info.plist"), "Could not locate"},
        {"no executable", after("rm Teravolant"), kNotRun},
        {"text", after("chmod 400 Teravolant"), kNotRun},
        {"folder", after("rm Teravolant; mkdir Teravolant"), kNotRun},
        {"outside", after("mv Teravolant ../../..; ln -s ../../../Teravolant"), kNotRun},
    });
}

TEST(CutDownload, GoesOnWhereItEndedIfTheRestFits) {
    struct Cut {
        const char* situation;
        std::size_t place;
        std::pair<std::string, std::string> validator;
        bool goesOn;
        bool hasOtherContent = false;
    };
    const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";
    const Cut table[] = {
        {"at the start", 0, {"ETag", kTag}, false},
        {"before the end", std::string::npos, {"ETag", kTag}, true},
        {"another tag, same content", 1000, {"ETag", "\"x\""}, true},
        {"another tag, other content", 1000, {"ETag", "\"x\""}, true, true},
        {"same tag, other content", 1000, {"ETag", kTag}, true, true},
        {"a date", 1000, {"Last-Modified", date}, true},
        {"a weak tag", 1000, {"ETag", "W/" + kTag}, false},
        {"no validator", 1000, {"Date", date}, false},
    };
    for (const auto& [situation, cut, validator, goesOn, hasOtherContent] : table) {
        SCOPED_TRACE(situation);
        Update update;  // The sizes of two archives can differ, because they contain times.
        const std::string right = update.archive;
        const std::size_t place = std::min(cut, right.size() - 1);
        update.archiveAnswers = {{.headers = {validator}, .body = right, .cutAfter = place}};
        if (hasOtherContent) {
            update.archive.assign(right.size(), '\0');
            update.expectRefused("its digest is not the one");
            update.archive = right;
            update.wallTime += 1h;
        }
        update.expectInstalled();
        // A part that was mixed from two contents is fetched again as a whole.
        const bool isMixed = hasOtherContent && validator.second == kTag;
        std::vector<std::string> ranges(isMixed ? 4 : hasOtherContent ? 3 : 2);
        ranges[1] = goesOn ? "bytes=" + std::to_string(place) + "-" : "";
        EXPECT_EQ(update.ranges, ranges);
    }
}

TEST(CutDownload, FetchesNoByteTwice) {
    Update update;
    const std::size_t size = update.archive.size();
    for (std::size_t start = 0; start < 5000; start += 1000) {
        const auto range = "bytes " + std::to_string(start) + "-" + std::to_string(size - 1) + "/" +
                           std::to_string(size);
        // Only the first answer has a validator.
        update.archiveAnswers.push_back(
            {.status = start == 0 ? 200 : 206,
             .headers = {start == 0 ? std::pair("ETag", kTag.c_str())
                                    : std::pair("Content-Range", range.c_str())},
             .body = update.archive.substr(start),
             .cutAfter = 1000});
    }
    update.expectInstalled();
    EXPECT_EQ(update.ranges,
              (std::vector<std::string>{"", "bytes=1000-", "bytes=2000-", "bytes=3000-",
                                        "bytes=4000-", "bytes=5000-"}));
    EXPECT_EQ(update.pauses, (std::vector<std::int64_t>(5, 2)));
}

TEST(CutDownload, IsFetchedAgainAsAWholeOnce) {
    Update update;
    const std::string size = std::to_string(update.archive.size());
    update.archive.assign(update.archive.size(), '\0');  // It never has the offered digest.
    const ServerAnswer cut{.headers = {{"ETag", kTag}}, .body = update.archive, .cutAfter = 1000};
    const auto range = "bytes 1000-" + std::to_string(update.archive.size() - 1) + "/" + size;
    const ServerAnswer rest{206, {{"Content-Range", range}}, update.archive.substr(1000)};
    update.archiveAnswers = {cut, rest, cut, rest, cut, rest};
    update.expectRefused("its digest is not the one");
    EXPECT_EQ(update.ranges.size(), 4U);
}

TEST(Retries, EndAfterThreeMinutesWithoutProgress) {
    const ServerAnswer busy{503, {{"Retry-After", "7"}}};
    struct Failure {
        const char* situation;
        std::vector<ServerAnswer> feed, archive;
        std::vector<std::int64_t> pauses;
        bool isInstalled = true;
    };
    const Failure table[] = {
        {"busy", {busy, {429}, {408}}, {}, {7, 4, 8}},
        {"silent", {{.isSilent = true}}, {}, {2}},
        {"no HTTP at first", {}, {{.raw = ""}, {500}}, {2, 4}},
        {"another part", {}, {{206, {{"Content-Range", "bytes 3-9/10"}}, "b"}}, {2}},
        {"range refused", {}, {{416}}, {2}},
        {"long pause", {{503, {{"Retry-After", "181"}}}}, {}, {}, false},
        {"down", std::vector<ServerAnswer>(8, {502}), {}, {2, 4, 8, 16, 32, 60, 58}, false},
        {"cut at one place",
         {},
         std::vector<ServerAnswer>(10, {.body = "b", .chunked = true, .cutAfter = 1}),
         {2, 4, 8, 16, 32, 60, 58},
         false},
    };
    for (const Failure& failure : table) {
        SCOPED_TRACE(failure.situation);
        Update update;
        update.feedAnswers = failure.feed;
        update.archiveAnswers = failure.archive;
        if (failure.isInstalled) {
            update.expectInstalled();
        } else {
            EXPECT_FALSE(update.run());
        }
        EXPECT_EQ(update.pauses, failure.pauses);
    }
}

TEST(RefusedArchive, IsNotFetchedAgainAtEveryStart) {
    struct Refused {
        const char* situation;
        std::function<void(Update&)> change;
        std::vector<std::chrono::hours> pauses;
    };
    const Refused table[] = {
        {"not an update", [](Update& u) { fs::remove(u.executable), u.publish(); }, {168h, 168h}},
        {"other bytes", [](Update& u) { u.archive.front() ^= 1; }, {1h, 4h, 24h, 24h}},
        {"cut short", [](Update& u) { u.archive.pop_back(); }, {1h, 4h}},
    };
    for (const Refused& refused : table) {
        SCOPED_TRACE(refused.situation);
        Update update;
        refused.change(update);
        update.expectRefused("refused");
        for (std::size_t fetched = 1; const auto pause : refused.pauses) {
            EXPECT_EQ(update.ranges.size(), fetched++);
            update.wallTime += pause - 1s;
            update.expectRefused("was refused on this computer at 2026-1");
            update.wallTime += 1s;
            update.expectRefused("refused");
        }
        update.wallTime -= 1000h;  // A clock that was set back.
        update.expectRefused("refused");
        EXPECT_EQ(update.ranges.size(), refused.pauses.size() + 2);
        // The repaired publication arrives at once.
        fs::copy("/bin/true", update.executable, fs::copy_options::overwrite_existing);
        fs::last_write_time(update.executable, fs::last_write_time(update.executable) - 1h);
        update.publish();
        update.expectInstalled();
    }
}

}  // namespace
}  // namespace teravolant
