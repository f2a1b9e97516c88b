/* Uplink: tells the cloud that the unit lost its uplink, and why. */
#include <jansson.h>
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

static void keep_log(void)
{
    char command[256], output[1];
    zorv_snprintf("uplink", "command cut", command, sizeof command,
                  "cd /etc/persistent && mkdir -p isolation_logs && "
                  "tail -n 20 /var/log/messages >/tmp/uplink.log && "
                  "tar -C /tmp -czf uplink.new uplink.log && "
                  "mv uplink.new isolation_logs/uplink-%ld.tgz",
                  (long)time(NULL));
    popen_get_output(command, output, sizeof output);
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
