// The random functions of text.h.
#include <zorv/text.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include "core/log_gate.h"
#include "core/own.h"

using namespace zorv;

namespace {

constexpr char kModule[] = "libzorv_util";

// A seed from the kernel: from the device that a start script may have fed, or by the system call
// where /dev is not there yet; from the time when neither answers.
uint32_t urandom()
{
    uint32_t seed;
    const Fd device(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
    if (read(device.get(), &seed, sizeof seed) == sizeof seed)
        return seed;
    log_verbose("read returned error in urandom");
    if (getrandom(&seed, sizeof seed, GRND_NONBLOCK) == sizeof seed)
        return seed;
    log_warning("no random numbers from the kernel, the time is taken");
    return static_cast<uint32_t>(time(nullptr));
}

void seed_rand()
{
    srand(urandom());
}

unsigned next_rand()
{
    return static_cast<unsigned>(rand()); // NOLINT(cert-msc30-c,cert-msc50-cpp): as documented
}

unsigned char next_byte()
{
    return static_cast<unsigned char>(next_rand());
}

} // namespace

size_t gen_rand_bytes(unsigned char *out, size_t count)
{
    seed_rand();
    if (!out)
        return 0;
    for (size_t i = 0; i < count; ++i)
        out[i] = next_byte();
    return count;
}

size_t gen_rand_hex(char *out, size_t size)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    seed_rand();
    if (!out || size % 2 == 0)
        return 0;
    for (size_t i = 0; i + 1 < size; i += 2) {
        const unsigned char byte = next_byte();
        out[i] = kDigits[byte >> 4];
        out[i + 1] = kDigits[byte & 0xf];
    }
    out[size - 1] = '\0';
    return size / 2;
}

char *gen_rand_string(char *out, size_t length)
{
    static constexpr char kCharacters[] =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    if (!out || length == 0)
        return nullptr;
    seed_rand();
    for (size_t i = 0; i < length; ++i)
        out[i] = kCharacters[next_rand() % (sizeof kCharacters - 1)];
    out[length] = '\0';
    return out;
}
