#include "update_framework/archive_unpacking.h"

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/files/files.h"
#include "platform/system/confined_program.h"

namespace teravolant::platform {

Status unpackDownloadedArchive(const DownloadedArchive& archive,
                               const std::filesystem::path& folder,
                               std::chrono::milliseconds patience) {
    constexpr std::size_t kPieceSize = std::size_t{256} * 1024;
    auto program = ConfinedProgram::start({.name = "unpack",
                                           .folder = folder,
                                           .errorDomain = NSCocoaErrorDomain,
                                           .patience = patience});
    if (!program) {
        return program.error();
    }
    const auto send = [&](std::string_view piece) { return program->send(piece); };
    if (auto error = readOpenFile(archive.file, folder, kPieceSize, send)) {
        return error;
    }
    program->endInput();
    const auto result = program->receive();
    if (!result) {
        return result.error();
    }
    return result->kind == FrameKind::End ? Status() : program->invalidOutput();
}

bool isFaultOfArchive(const Error& error) {
    if (error.domain == kProgramErrorDomain) {
        return error.code == ProgramError::crashed;
    }
    return error.domain == NSCocoaErrorDomain &&
           (error.code == NSFileReadCorruptFileError || error.code == NSFileReadTooLargeError);
}

}  // namespace teravolant::platform
