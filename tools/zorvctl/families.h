// families.h - the families of verbs, one source file each.
#ifndef ZORVCTL_FAMILIES_H
#define ZORVCTL_FAMILIES_H

namespace ctl {

class Cli;

void add_analytics(Cli &cli);
void add_avg(Cli &cli);
void add_base64(Cli &cli);
void add_board(Cli &cli);
void add_bridge(Cli &cli);
void add_capture(Cli &cli);
void add_cfg(Cli &cli);
void add_crash(Cli &cli);
void add_discovery(Cli &cli);
void add_doctor(Cli &cli);
void add_exec(Cli &cli);
void add_file(Cli &cli);
void add_hash(Cli &cli);
void add_http(Cli &cli);
void add_hw(Cli &cli);
void add_iface(Cli &cli);
void add_json(Cli &cli);
void add_lock(Cli &cli);
void add_model(Cli &cli);
void add_portal(Cli &cli);
void add_ps(Cli &cli);
void add_stats(Cli &cli);
void add_status(Cli &cli);
void add_top(Cli &cli);
void add_trace(Cli &cli);
void add_url(Cli &cli);

} // namespace ctl

#endif
