#include "net/libcurl.h"

#include <cstring>
#include <iterator>

#include <dlfcn.h>
#include <pthread.h>

#include "core/dlopen_note.h"
#include "core/log_gate.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "curl_simple";

#define LIBCURL "libcurl.so.4"

// In the order of Libcurl.
constexpr char kNames[][24] = {
    "curl_global_init",   "curl_easy_init",    "curl_easy_setopt",
    "curl_easy_perform",  "curl_easy_getinfo", "curl_easy_cleanup",
    "curl_easy_strerror", "curl_slist_append", "curl_slist_free_all",
};

ZORV_DLOPEN_NOTE kNote =
    dlopen_note(R"([{"soname":[")" LIBCURL
                R"("],"feature":"http","description":"HTTP requests","priority":"required"}])");

Libcurl g_libcurl;
pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;

bool load()
{
    void *addresses[std::size(kNames)], *library = nullptr;
    static_assert(sizeof addresses == sizeof g_libcurl);
    for (size_t i = 0; i < std::size(kNames); ++i) {
        addresses[i] = dlsym(RTLD_DEFAULT, kNames[i]);
        if (addresses[i])
            continue;
        if (!library)
            library = dlopen(LIBCURL, RTLD_NOW | RTLD_NODELETE);
        addresses[i] = library ? dlsym(library, kNames[i]) : nullptr;
        if (!addresses[i]) {
            log_error_as("curl_simple", "No HTTP without " LIBCURL ": %s", dlerror());
            return false;
        }
    }
    Libcurl found;
    memcpy(&found, addresses, sizeof found);
    // Here, where no other thread does it; a program that has done it is counted twice.
    if (found.global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK)
        return false;
    g_libcurl = found;
    return true;
}

} // namespace

const Libcurl *zorv::libcurl()
{
    pthread_mutex_lock(&g_mutex);
    const bool is_there = g_libcurl.easy_init || load();
    pthread_mutex_unlock(&g_mutex);
    return is_there ? &g_libcurl : nullptr;
}

const char *zorv::result_words(int result)
{
    // Of what may have kept libcurl from being loaded it is not asked.
    const Libcurl *const curl = result == CURLE_FAILED_INIT ? nullptr : libcurl();
    return curl ? curl->easy_strerror(static_cast<CURLcode>(result)) : "Failed initialization";
}
