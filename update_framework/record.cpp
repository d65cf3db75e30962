#include "update_framework/record.h"

#include "platform/files/durable_file.h"
#include "platform/values/property_list.h"

namespace teravolant::platform {

Record readRecord(const std::filesystem::path& file) {
    Record record;
    const auto dictionary = dictionaryInFile(file);
    for (const auto& [name, value] : dictionary ? *dictionary : Value::Dictionary()) {
        if (value.text() != nullptr) {
            record[name] = *value.text();
        }
    }
    return record;
}

Status writeRecord(const std::filesystem::path& file, const Record& record) {
    Value::Dictionary dictionary;
    for (const auto& [name, text] : record) {
        dictionary.insert_or_assign(name, text);
    }
    return replaceFileDurably(file, serialisePropertyList(std::move(dictionary)), 0600);
}

}  // namespace teravolant::platform
