// Functions of glibc 2.35 and later that static libraries of the build system call. A program that
// contains this file calls these functions instead, so that it starts with glibc 2.34. They are
// hidden: shared libraries keep using those of glibc.
#include <dlfcn.h>
#include <link.h>
#include <sys/random.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#define HIDDEN __attribute__((visibility("hidden")))

namespace {

struct Search {
    std::uintptr_t address;
    dl_find_object* result;
};

// Returns 1, which ends the iteration, if the object contains the address.
int examineObject(dl_phdr_info* object, std::size_t /*size*/, void* data) {
    const auto& search = *static_cast<const Search*>(data);
    void* tables = nullptr;
    bool found = false;
    for (std::size_t index = 0; index < object->dlpi_phnum; ++index) {
        const ElfW(Phdr)& segment = object->dlpi_phdr[index];
        const std::uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
        if (segment.p_type == PT_GNU_EH_FRAME) {
            // NOLINTNEXTLINE(performance-no-int-to-ptr): the loader gives addresses as integers.
            tables = reinterpret_cast<void*>(begin);
        } else if (segment.p_type == PT_LOAD && search.address - begin < segment.p_memsz) {
            found = true;
        }
    }
    if (!found || tables == nullptr) {
        return 0;
    }
    search.result->dlfo_eh_frame = tables;
    return 1;
}

}  // namespace

extern "C" {

// The unwinder finds the tables of an exception's frames with it. Sets only the field that the
// unwinder reads on 64-bit machines.
HIDDEN int _dl_find_object(void* address, dl_find_object* result) noexcept {
    static_assert(DLFO_STRUCT_HAS_EH_DBASE == 0 && DLFO_STRUCT_HAS_EH_COUNT == 0);
    Search search{reinterpret_cast<std::uintptr_t>(address), result};
    return dl_iterate_phdr(examineObject, &search) == 1 ? 0 : -1;
}

// The XML parser salts its hash tables with it.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): glibc's name is reserved.
HIDDEN void arc4random_buf(void* buffer, std::size_t size) noexcept {
    auto* bytes = static_cast<std::byte*>(buffer);
    while (size > 0) {
        const ssize_t count = getrandom(bytes, size, 0);
        if (count > 0) {
            bytes += count;
            size -= static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            std::abort();
        }
    }
}
}
