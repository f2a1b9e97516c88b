// What comes of discovery when memory or the kernel fails.
#include <event2/event.h>

#include "protocol/peer.h"
#include "support/torture.h"

static event_base *g_base;
static std::string g_heard;

constexpr zorv_protocol_handler kTable[] = {
    {[](const void *message) { g_heard += shown(message); }, 6}, {nullptr, 0}};

static void prepare()
{
    libzorv_log_level = 1;
    write_site();
    Torture::file("/var/run/ipready.br0", "127.0.0.1\n");
}

TEST_F(Torture, Protocol)
{
    torture({
        {"zorv_protocol_init",
         [] {
             const int rc = zorv_protocol_init(1);
             const auto &ctrl = zorv_protocol_ctrl;
             const std::string text = std::to_string(rc) + " " + to_hex(ctrl.device, 6) + " " +
                                      std::to_string(ctrl.own_address);
             libzorv_log_level = 0; // leaving the group wants a route
             zorv_protocol_deinit();
             return Torture::settled(text);
         },
         // As documented, files that cannot be read have their defaults: no MAC address, no group.
         {"-1 000000000000 0: *zorv_protocol_init: could not start zorv-protocol",
          "0 000000000000 16777343", "0 02a0f1000007 0"},
         prepare},
        {.name = "datagrams go and come",
         .scenario =
             [] {
                 const int sent = zorv_protocol_send("x", 1, 6, 9, 1);
                 for (int i = 0; i < 3; ++i) // what was interrupted comes again
                     event_base_loop(g_base, EVLOOP_ONCE | EVLOOP_NONBLOCK);
                 return std::to_string(sent) + " " + g_heard;
             },
         .outcomes = {"-1 6 *hello: zorv_protocol_send: failed to send message *",
                      "-1 6 *hello: gen_payload: hdr malloc fail; zorv_protocol_send: "
                      "fill_zorv_payload fail"},
         // The transport with a datagram that waits for it.
         .prepare =
             [] {
                 prepare();
                 g_base = event_base_new();
                 zorv_protocol_init(1);
                 zorv_protocol_init_recv(g_base, kTable);
                 g_peer_sends = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
                 send_to_site(generate("hello", 6, 9, 1, make_ctrl(0x11, 1)), "127.0.0.1");
             },
         .messages = {"recvfrom failed: Input/output error"}},
    });
}
