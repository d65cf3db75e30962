#pragma once
#include <filesystem>
#include <vector>
#include "platform/core/result.h"
#include "platform/system/executable_file.h"
namespace teravolant::platform {
inline Result<std::vector<std::filesystem::path>> elfFilesIn(const std::filesystem::path& bundle) {
    std::vector<std::filesystem::path> files;
    for (const auto& e : std::filesystem::recursive_directory_iterator(bundle)) {
        if (!e.is_regular_file() || e.is_symlink()) continue;
        const auto f = checkedFormatOf(e.path());
        if (!f) return f.error();
        if (*f == FileFormat::Elf) files.push_back(e.path());
    }
    return files;
}
}  // namespace teravolant::platform
