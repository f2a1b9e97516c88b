/* Uplink: tells the cloud that the unit lost its uplink, and why. */
#include <jansson.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <zorv/zorv.h>

static void tell(int channel)
{
    json_t *data = json_pack("{s:s, s:i}", "uplink", "wireless", "channel", channel);
    int result = send_trace_simple("uplink", "lost", data);
    libzorv_log(LOG_INFO, "uplink", __func__, "the trace is %s",
                result == TRACE_ACCEPTED ? "accepted" : "lost");
}

static const char kArchive[] = "mkdir -p /etc/persistent/isolation_logs"
                               " && tail -n 20 /var/log/messages >/tmp/uplink.log"
                               " && tar -C /tmp -czf /etc/persistent/uplink.new uplink.log";

static void keep_log(void)
{
    char name[64];
    zorv_snprintf("uplink", "name cut", name, sizeof name,
                  "/etc/persistent/isolation_logs/uplink-%ld.tgz", (long)time(NULL));
    if (system(kArchive) != 0 || rename("/etc/persistent/uplink.new", name) != 0)
        libzorv_log(LOG_ERR, "uplink", __func__, "the log is not kept");
}

static int may_report(void)
{
    return access("/var/run/ntp.ready", R_OK) == 0 && access("/var/run/ipready.br0", R_OK) == 0 &&
           freadulong("/var/run/system.analytics.mode", 2) != 0;
}

int main(int argc, char **argv)
{
    libzorv_log_use_syslog = 0;
    if (argc > 1 && strcmp(argv[1], "lost") == 0) {
        cfg_entry *cfg = parse("/tmp/system.cfg");
        tell(get_int32(cfg, 0, "radio.2.channel"));
        free_cfg(cfg);
        keep_log();
    }
    return check_vwire_disconnect_logs("wireless", may_report()) == 0 ? 0 : 1;
}
