// The file is a record with one line for each digest: the kind of the refusal, how often the
// archive was refused in a row, the seconds since 1970, and the reason.
#include "update_framework/refusals.h"

#include <algorithm>
#include <optional>
#include <sstream>

#include "platform/core/text.h"
#include "platform/core/utc_time.h"
#include "update_framework/record.h"
#include "update_framework/updater_error.h"

namespace teravolant::platform {
namespace {

using std::chrono::hours;
using std::chrono::sys_seconds;

constexpr const char* kBad = "bad";
constexpr const char* kOtherBytes = "other-bytes";
constexpr const char* kFailedStarts = "failed-starts";

std::string kindOf(Refusal refusal) {
    switch (refusal) {
        case Refusal::Bad:
            return kBad;
        case Refusal::OtherBytes:
            return kOtherBytes;
        case Refusal::FailedStarts:
            return kFailedStarts;
    }
    return {};
}

struct Entry {
    std::string kind;
    int count = 0;
    sys_seconds time;
    std::string reason;
};

std::optional<Entry> entryIn(const std::string& line) {
    Entry entry;
    std::int64_t time = 0;
    std::istringstream fields(line);
    fields >> entry.kind >> entry.count >> time >> std::ws;
    constexpr std::int64_t kLatest = 1'000'000'000'000;
    if (!fields || entry.count < 1 || time < 0 || time > kLatest ||
        (entry.kind != kBad && entry.kind != kOtherBytes && entry.kind != kFailedStarts)) {
        return std::nullopt;
    }
    std::getline(fields, entry.reason);
    entry.time = sys_seconds(std::chrono::seconds(time));
    return entry;
}

/// Whether the archive is refused without an end, whatever the clock shows.
bool isFinal(const Entry& entry) { return entry.kind == kFailedStarts; }

hours pauseAfter(const Entry& entry) {
    if (entry.kind == kBad) {
        return hours(7 * 24);
    }
    return entry.count == 1 ? hours(1) : entry.count == 2 ? hours(4) : hours(24);
}

bool isOver(const Entry& entry, sys_seconds now) {
    return !isFinal(entry) && (now < entry.time || now >= entry.time + pauseAfter(entry));
}

std::string describe(const Entry& entry) {
    return "refused on this computer at " + utcTimeText(entry.time) +
           " and is not downloaded again" +
           (isFinal(entry) ? "" : " before " + utcTimeText(entry.time + pauseAfter(entry))) +
           ". The reason was: " + escaped(entry.reason);
}

}  // namespace

Refusals::Refusals(const std::filesystem::path& cacheFolder)
    : _file(cacheFolder / "refused.plist") {}

Status Refusals::check(const std::string& digest, Time now) const {
    const auto entry = entryIn(readRecord(_file)[digest]);
    if (!entry || isOver(*entry, now)) {
        return std::nullopt;
    }
    return updaterError(SQRLUpdaterErrorRefusedArchive,
                        "The offered archive was " + describe(*entry));
}

std::vector<std::string> Refusals::all(Time now) const {
    std::vector<std::string> descriptions;
    for (const auto& [digest, line] : readRecord(_file)) {
        const auto entry = entryIn(line);
        if (entry && !isOver(*entry, now)) {
            descriptions.push_back("An archive was " + describe(*entry));
        }
    }
    return descriptions;
}

Status Refusals::add(const std::string& digest, Refusal refusal, const std::string& reason,
                     Time now) const {
    // An expired entry is kept for another day: it counts consecutive refusals.
    constexpr hours kKeptLonger(24);
    constexpr std::size_t kMostEntries = 50;
    Record record = readRecord(_file);
    const std::string kind = kindOf(refusal);
    const auto before = entryIn(record[digest]);
    const int count = before && before->kind == kind ? std::min(before->count, 3) + 1 : 1;
    std::erase_if(record, [now, kKeptLonger](const auto& item) {
        const auto entry = entryIn(item.second);
        return !entry ||
               (!isFinal(*entry) &&
                (now < entry->time || now > entry->time + pauseAfter(*entry) + kKeptLonger));
    });
    if (record.size() >= kMostEntries) {
        record.clear();
    }
    record[digest] = kind + " " + std::to_string(count) + " " +
                     std::to_string(now.time_since_epoch().count()) + " " + escaped(reason);
    return writeRecord(_file, record);
}

void Refusals::remove(const std::string& digest) const {
    Record record = readRecord(_file);
    if (record.erase(digest) > 0) {
        (void)writeRecord(_file, record);
    }
}

}  // namespace teravolant::platform
