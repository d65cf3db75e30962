// Defines the functions of libcurl that this folder calls. Each forwards to the function of the
// same name in the system's library, which `loadCurl` opens.
//
// An executable that is linked to libcurl names the symbol version of the distribution that it was
// built on, for example CURL_OPENSSL_4, and other distributions' libraries lack it. A look-up by
// name ignores versions. It also lets the program report a missing library itself.
#include "platform/http/curl_library.h"

#include <dlfcn.h>

#include <cstdarg>
#include <string>

#include <curl/curl.h>

#include "platform/core/http_error.h"

#if LIBCURL_VERSION_NUM < 0x080000
using SourceUrl = CURLU;
#else
using SourceUrl = const CURLU;
#endif

// The names of parameters and the macros are simpler than libcurl's own.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name, bugprone-macro-parentheses)

// The functions with a fixed list of parameters.
#define CURL_FUNCTIONS(FUNCTION)                                                                  \
    FUNCTION(CURL*, curl_easy_init, (), ())                                                       \
    FUNCTION(void, curl_easy_cleanup, (CURL * handle), (handle))                                  \
    FUNCTION(void, curl_easy_reset, (CURL * handle), (handle))                                    \
    FUNCTION(CURLcode, curl_easy_perform, (CURL * handle), (handle))                              \
    FUNCTION(const char*, curl_easy_strerror, (CURLcode code), (code))                            \
    FUNCTION(curl_slist*, curl_slist_append, (curl_slist * list, const char* line), (list, line)) \
    FUNCTION(void, curl_slist_free_all, (curl_slist * list), (list))                              \
    FUNCTION(void, curl_free, (void* memory), (memory))                                           \
    FUNCTION(CURLU*, curl_url, (), ())                                                            \
    FUNCTION(CURLU*, curl_url_dup, (SourceUrl * url), (url))                                      \
    FUNCTION(void, curl_url_cleanup, (CURLU * url), (url))                                        \
    FUNCTION(CURLUcode, curl_url_get,                                                             \
             (SourceUrl * url, CURLUPart part, char** text, unsigned flags),                      \
             (url, part, text, flags))                                                            \
    FUNCTION(CURLUcode, curl_url_set,                                                             \
             (CURLU * url, CURLUPart part, const char* text, unsigned flags),                     \
             (url, part, text, flags))

#define FORWARD(Returned, name, parameters, arguments)    \
    static Returned(*system_##name) parameters = nullptr; \
    CURL_EXTERN Returned name parameters { return system_##name arguments; }

extern "C" {

CURL_FUNCTIONS(FORWARD)

static CURLcode (*system_curl_easy_setopt)(CURL*, CURLoption, ...) = nullptr;
static CURLcode (*system_curl_easy_getinfo)(CURL*, CURLINFO, ...) = nullptr;

// Every value of an option is a long, a curl_off_t or a pointer, which 64-bit processors pass
// alike.
#undef curl_easy_setopt
CURL_EXTERN CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
    static_assert(sizeof(long) == sizeof(void*) && sizeof(curl_off_t) == sizeof(void*));
    va_list values;
    va_start(values, option);
    void* const value = va_arg(values, void*);
    va_end(values);
    return system_curl_easy_setopt(handle, option, value);
}

#undef curl_easy_getinfo
CURL_EXTERN CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
    va_list values;
    va_start(values, info);
    void* const value = va_arg(values, void*);
    va_end(values);
    return system_curl_easy_getinfo(handle, info, value);
}
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name, bugprone-macro-parentheses)

namespace teravolant::platform {
namespace {

Status cannotBeUsed(const std::string& reason) {
    return httpError(
        HttpError::libraryMissing,
        "The library libcurl.so.4 can't be used (" + reason +
            "): install the package libcurl4 (Debian, Ubuntu; libcurl4t64 since 2024), "
            "libcurl (Fedora, Alpine), curl (Arch) or libcurl4 (openSUSE).");
}

Status loadFunctions() {
    void* library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        const std::string reason = dlerror();
        // The same interface, with another TLS library.
        library = dlopen("libcurl-gnutls.so.4", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) {
            return cannotBeUsed(reason);
        }
    }
    const auto find = [&](auto& function, const char* name) {
        function =
            reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
        return function != nullptr;
    };
    CURLcode (*initialise)(long) = nullptr;
    bool isComplete = find(initialise, "curl_global_init");
#define FIND(Returned, name, parameters, arguments) \
    isComplete = isComplete && find(system_##name, #name);
    CURL_FUNCTIONS(FIND)
#undef FIND
    isComplete = isComplete && find(system_curl_easy_setopt, "curl_easy_setopt") &&
                 find(system_curl_easy_getinfo, "curl_easy_getinfo");
    if (!isComplete) {
        return cannotBeUsed("it is older than version 7.63");
    }
    return initialise(CURL_GLOBAL_DEFAULT) == CURLE_OK
               ? Status()
               : cannotBeUsed("it could not be initialised");
}

}  // namespace

Status loadCurl() {
    static const Status failure = loadFunctions();
    return failure;
}

}  // namespace teravolant::platform
