#include <zorv/status.h>

#include <cstdlib>

#include <zorv/file.h>

#include "core/device_files.h"

using namespace zorv;

static constinit char g_main_mac[sizeof "00:11:22:33:44:55"] = ""; // of the last call

const char *get_main_mac_str()
{
    freadvalue(kSystemInfo, "eth0.macaddr", g_main_mac, sizeof g_main_mac, "");
    if (*g_main_mac == '\0')
        freadvalue(kSystemInfo, "wifi0.macaddr", g_main_mac, sizeof g_main_mac,
                   "00:11:22:33:44:55");
    return g_main_mac;
}

long get_manufid()
{
    char text[5];
    return strtol(freadvalue(kSystemInfo, "manufid", text, sizeof text, "0000"), nullptr, 16);
}
