#include "platform/system/executable_file.h"

#include <elf.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

#include "platform/core/error.h"
#include "platform/core/file_error.h"
#include "platform/system/executable_path.h"
#include "tests/fixtures/temporary_folder.h"

namespace teravolant::platform {
namespace {

constexpr std::int64_t kWhole = 0;
constexpr std::int64_t kForeign = NSExecutableArchitectureMismatchError;
constexpr std::int64_t kUnusable = NSExecutableNotLoadableError;

/// A program of this machine: the header, one segment that is the whole file, the name of the
/// program interpreter, and one section.
struct Program {
    Elf64_Ehdr elf{};
    Elf64_Phdr loaded{};
    Elf64_Phdr interpreter{};
    char name[8] = "/bin/sh";
    Elf64_Shdr section{};

    Program() {
        std::ifstream self(executablePathOfThisProcess());
        self.read(reinterpret_cast<char*>(&elf), sizeof elf);
        elf.e_phoff = offsetof(Program, loaded);
        elf.e_phnum = 2;
        elf.e_shoff = offsetof(Program, section);
        elf.e_shnum = 1;
        loaded.p_type = PT_LOAD;
        loaded.p_filesz = sizeof *this;
        interpreter.p_type = PT_INTERP;
        interpreter.p_offset = offsetof(Program, name);
        interpreter.p_filesz = sizeof name;
    }
};

std::int64_t codeOf(const Status& status) {
    const Error* const error = status.operator->();
    return error != nullptr ? error->code : kWhole;
}

std::int64_t check(const std::string& contents, int mode = 0500) {
    const fixtures::TemporaryFolder folder;
    folder.write("program", contents);
    permissions(folder.path() / "program", static_cast<std::filesystem::perms>(mode));
    return codeOf(checkExecutable(folder.path() / "program"));
}

std::string bytesOf(const Program& program, std::size_t size = sizeof(Program)) {
    return {reinterpret_cast<const char*>(&program), size};
}

}  // namespace

TEST(ExecutableFile, ReadsHeaders) {
    using P = Program&;
    using Change = void (*)(P);
    const std::pair<std::int64_t, std::vector<Change>> table[] = {
        {kWhole,
         {[](P) {}, [](P it) { it.elf.e_type = ET_DYN; },
          [](P it) { it.elf.e_shoff = it.elf.e_shnum = 0; },
          [](P it) { it.elf.e_shnum = 0, it.section.sh_size = 1; }}},
        {kForeign,
         {[](P it) { it.elf.e_ident[EI_MAG3] = 'E'; },
          [](P it) { it.elf.e_ident[EI_CLASS] = ELFCLASS32; },
          [](P it) { it.elf.e_ident[EI_DATA] = ELFDATA2MSB; },
          [](P it) { it.elf.e_machine = EM_S390; }}},
        {kUnusable,
         {[](P it) { it.elf.e_type = ET_CORE; }, [](P it) { it.elf.e_phnum = 0; },
          [](P it) { it.elf.e_phnum = 0xffff; }, [](P it) { it.elf.e_phentsize = 0; },
          [](P it) { it.elf.e_phoff = UINT64_MAX; }, [](P it) { it.elf.e_shoff += 1; },
          [](P it) { it.elf.e_shoff = UINT64_MAX - 1; },
          [](P it) { it.elf.e_shoff += 1, it.elf.e_shnum = 0; },
          [](P it) { it.elf.e_shnum = 0, it.section.sh_size = 1UL << 58; },
          [](P it) { it.loaded.p_type = PT_NOTE; }, [](P it) { it.loaded.p_filesz += 1; },
          [](P it) { it.loaded.p_filesz = -(it.loaded.p_offset = 1); }}},
    };
    for (const auto& [code, changes] : table) {
        for (const Change& change : changes) {
            Program program;
            change(program);
            EXPECT_EQ(check(bytesOf(program)), code) << "change " << &change - changes.data();
        }
    }
    for (const std::size_t size : {0UL, 1UL, 4UL, 63UL, 64UL, sizeof(Program) - 1}) {
        EXPECT_EQ(check(bytesOf({}, size)), kUnusable) << size << " bytes";
    }
    EXPECT_EQ(codeOf(checkExecutable("/")), NSFileReadUnknownError);
}

TEST(ExecutableFile, RefusesWhatCanNotStart) {
    const auto program = [](std::uint64_t offset, std::uint64_t size) {
        Program it;
        it.interpreter.p_offset += offset;
        it.interpreter.p_filesz = size;
        return bytesOf(it) + std::string(5000, 0);
    };
    EXPECT_EQ(check(program(0, 8)), kWhole);
    EXPECT_EQ(check(program(1, 7)), kUnusable);  // "bin/sh" of the current directory
    EXPECT_EQ(check(program(0, 5000)), kUnusable);
    EXPECT_EQ(check(program(1UL << 63, 8)), kUnusable);
    EXPECT_EQ(check("#!"), kWhole);
    EXPECT_EQ(check("#"), kForeign);
    EXPECT_EQ(check("#", 0100), kWhole);  // unreadable
    EXPECT_EQ(check(program(0, 8), 0400), NSFileReadNoPermissionError);
    EXPECT_EQ(codeOf(checkExecutable("/proc/self/mounts")), kUnusable);  // mounted with noexec
}

}  // namespace teravolant::platform
