#include "update_framework/record.h"

#include "platform/files/durable_file.h"
#include "platform/files/files.h"
#include "platform/values/property_list.h"

namespace teravolant::platform {

Record recordIn(std::string_view propertyList) {
    Record record;
    const auto value = parsePropertyList(propertyList);
    const auto* const dictionary = value ? value->dictionary() : nullptr;
    for (const auto& [name, entry] : dictionary ? *dictionary : Value::Dictionary()) {
        if (entry.text() != nullptr) {
            record[name] = *entry.text();
        }
    }
    return record;
}

std::string textOf(const Record& record) {
    Value::Dictionary dictionary;
    for (const auto& [name, text] : record) {
        dictionary.insert_or_assign(name, text);
    }
    return serialisePropertyList(std::move(dictionary));
}

Record readRecord(const std::filesystem::path& file) {
    const auto contents = contentsOfFile(file);
    return contents ? recordIn(*contents) : Record();
}

Status writeRecord(const std::filesystem::path& file, const Record& record) {
    return replaceFileDurably(file, textOf(record), 0600);
}

}  // namespace teravolant::platform
