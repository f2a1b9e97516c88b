#include <zorv/board.h>
#include <zorv/file.h>

#include <jansson.h>

#include "core/own.h"

using namespace zorv;

#define ACCELEROMETER "/sys/bus/i2c/devices/1-0018/iio:device0/"

namespace {

constexpr struct {
    char name[2];
    char path[sizeof ACCELEROMETER "in_accel_x_raw"];
} kAxes[] = {
    {"x", ACCELEROMETER "in_accel_x_raw"},
    {"y", ACCELEROMETER "in_accel_y_raw"},
    {"z", ACCELEROMETER "in_accel_z_raw"},
};

int read_axis(const char *path)
{
    char text[8] = ""; // six characters hold what the chip measures; untouched by an empty file
    int value;
    return sscanf(freadline(path, text, sizeof text, "0"), "%d", &value) == 1 ? value : 0;
}

} // namespace

int has_accelerometer()
{
    return Dir(opendir(ACCELEROMETER)) != nullptr;
}

json_t *prepare_accelerometer_status()
{
    Json status(json_object());
    fwriteline(ACCELEROMETER "sampling_frequency", "50");
    for (const auto &axis : kAxes)
        if (json_object_set_new(status.get(), axis.name, json_integer(read_axis(axis.path))) != 0)
            return nullptr;
    return status.release();
}
