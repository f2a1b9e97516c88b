// Path reduction: the result is short, has nothing left to reduce, and stays as it is.
#include <zorv/format.h>
#include <zorv/log.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void require(bool holds)
{
    if (!holds)
        abort();
}

bool has_component(const std::string &path, const char *component)
{
    return ("/" + path + "/").find(component) != std::string::npos;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    libzorv_log_level = 0;
    const std::string path(reinterpret_cast<const char *>(data), size);
    char *const reduced = vq_reduce_path(path.c_str(), nullptr);
    char buffer[4096];
    require((vq_reduce_path(path.c_str(), buffer) != nullptr) == (reduced != nullptr));
    if (!reduced)
        return 0;
    const std::string result = reduced;
    free(reduced);
    require(result == buffer);
    require(!result.empty() && result.size() < sizeof buffer);
    require(path[0] != '/' || result[0] == '/');
    require(!has_component(result, "/../"));
    require(result == "." || !has_component(result, "/./"));
    require(result.find("//") == std::string::npos);
    require(result == "/" || result.back() != '/');
    require(vq_reduce_path(result.c_str(), buffer) && result == buffer);
    return 0;
}
