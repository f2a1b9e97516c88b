#include <zorv/json.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <jansson.h>
#include <unistd.h>
#include <zorv/base64.h>
#include <zorv/file.h>

#include "core/log_gate.h"
#include "core/own.h"
#include "core/text_tools.h"
#include "platform/build_facts.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_util";
constexpr int kAllocationMark = 626; // log collectors know the failure by this number
constexpr size_t kChunk = 300;       // a multiple of 3: only the last chunk has padding
constexpr size_t kBuildWord = 12;    // of a date or a time of day
static_assert(kChunk % 3 == 0);

// Leaves the stream at its end; negative with errno when it has no size.
long find_size(FILE *stream)
{
    return fseek(stream, 0, SEEK_END) == 0 ? ftell(stream) : -1;
}

// Bytes for the text and its NUL. base64_encode_len() says the same, but has no answer for texts
// whose size an int cannot hold.
constexpr size_t encoded_size(size_t size)
{
    return (size + 2) / 3 * 4 + 1;
}

// Encodes chunk by chunk; false when the stream ends early.
bool encode(FILE *stream, size_t size, char *text)
{
    *text = '\0';
    while (size > 0) {
        unsigned char chunk[kChunk];
        const size_t length = std::min(size, kChunk);
        if (fread(chunk, 1, length, stream) != length)
            return false;
        base64rfc_encode(text, chunk, static_cast<int>(length));
        text += encoded_size(length) - 1;
        size -= length;
    }
    return true;
}

} // namespace

char *load_file_base64(FILE *stream)
{
    if (!stream)
        return nullptr;
    const long found = find_size(stream);
    if (found < 0) {
        log_debug("Couldn't find file size: %s", strerror(errno));
        return nullptr;
    }
    rewind(stream);
    const size_t size = encoded_size(static_cast<size_t>(found));
    Text text(size <= INT_MAX ? static_cast<char *>(malloc(size)) : nullptr);
    if (!text) {
        log_error("%d: malloc(%zu) failed", kAllocationMark, size);
        return nullptr;
    }
    if (!encode(stream, static_cast<size_t>(found), text.get())) {
        log_error("Couldn't read all bytes from file");
        return nullptr;
    }
    return text.release();
}

int json_object_load_file_base64(json_t *obj, const char *key, FILE *stream)
{
    const Text text(load_file_base64(stream));
    // Base64 is ASCII, so there is nothing to check in it.
    const int rc = json_object_set_new(obj, key, json_string_nocheck(text ? text.get() : ""));
    return text ? rc : -1;
}

json_t *mac_str_to_oui_json_string(const char *mac)
{
    unsigned char byte[6];
    if (!mac || sscanf(mac, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &byte[0], &byte[1], &byte[2], &byte[3],
                       &byte[4], &byte[5]) < 3)
        return nullptr;
    char oui[sizeof "001a2b"];
    snprintf(oui, sizeof oui, "%02x%02x%02x", byte[0], byte[1], byte[2]);
    return json_string(oui);
}

int get_build_time(char *buf, int len)
{
    if (access(kBuildProperties, F_OK) != 0)
        return -1;
    char date[kBuildWord], time[kBuildWord];
    freadvalue(kBuildProperties, "build_date", date, sizeof date, "");
    freadvalue(kBuildProperties, "build_time", time, sizeof time, "");
    snprintf(buf, len > 0 ? static_cast<size_t>(len) : 0, "%s %s", date, time);
    return 0;
}

int get_zorv_scm_reftype(void)
{
    return read_scm_reftype();
}
