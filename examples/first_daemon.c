/* Greeter: tells the other appliances of the site its name, and follows changes of that name. */
#include <event2/event.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include <zorv/zorv.h>

enum { METHOD_GREETING = 6 };
static const char kQuestion[] = "who is there";

static cfg_entry *g_cfg;

static void say(const char *words, const char *name)
{
    char text[128];
    zorv_snprintf("greeter", "greeting cut", text, sizeof text, "%s%s", words, name);
    zorv_protocol_ctrl.own_sequence = (uint16_t)(zorv_protocol_ctrl.own_sequence % 4095 + 1);
    zorv_protocol_send(text, (unsigned)strlen(text), METHOD_GREETING, 0, 1);
}

static void on_greeting(const void *message)
{
    const zorv_protocol_header *header = (const zorv_protocol_header *)message - 1;
    if (libzorv_log_level >= 4) /* without the text, which is a stranger's */
        libzorv_log(LOG_INFO, "greeter", __func__, "%d bytes from %02x:%02x", header->length,
                    header->device[4], header->device[5]);
    if (header->length == strlen(kQuestion) && memcmp(message, kQuestion, header->length) == 0)
        say("I am ", get_value(g_cfg, "nameless", "system.name"));
}

static const zorv_protocol_handler kHandlers[] = {
    {on_greeting, METHOD_GREETING},
    {NULL, 0},
};

static void on_hangup(evutil_socket_t signal, short what, void *unused)
{
    (void)signal, (void)what, (void)unused;
    cfg_entry *fresh = parse("/tmp/system.cfg");
    cfg_entry *changes = get_cfg_diff_it(g_cfg, fresh);
    if (get_cfg_key_count(changes, 1, "system.name") > 0) {
        const char *name = get_value(fresh, "nameless", "system.name");
        syswrapper_impl(1, "set-hostname", name, NULL);
        say("from now on I am ", name);
    }
    free_cfg_it(changes);
    free_cfg(g_cfg);
    g_cfg = fresh;
}

static void on_terminate(evutil_socket_t signal, short what, void *base)
{
    (void)signal, (void)what;
    event_base_loopexit(base, NULL);
}

static void run(struct event_base *base)
{
    struct event *hangup = evsignal_new(base, SIGHUP, on_hangup, NULL);
    struct event *terminate = evsignal_new(base, SIGTERM, on_terminate, base);
    event_add(hangup, NULL);
    event_add(terminate, NULL);
    zorv_protocol_init_recv(base, kHandlers);
    say(kQuestion, "");
    event_base_dispatch(base);
    zorv_protocol_deinit();
    event_free(terminate);
    event_free(hangup);
}

int main(void)
{
    libzorv_log_use_syslog = 0;
    const char *version;
    get_version(&version);
    libzorv_log(LOG_INFO, "greeter", __func__, "firmware %s, up %ld s", version,
                get_uptime_from_sysinfo());

    struct event_base *base = event_base_new();
    if (!base || zorv_protocol_init(1) != 0)
        return 1;
    unsigned char random[2];
    gen_rand_bytes(random, sizeof random);
    zorv_protocol_ctrl.own_sequence = (uint16_t)((random[0] << 8 | random[1]) & 0xFFF);

    g_cfg = parse("/tmp/system.cfg");
    run(base);
    event_base_free(base);
    free_cfg(g_cfg);
    return 0;
}
