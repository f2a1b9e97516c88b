/*
 * model.h - which family of models the running board belongs to.
 *
 * Each function asks board_identify() (<zorv/board.h>) and returns 1 when the system id of that
 * record is in its class, else 0. The record "Unknown" is in none. Threads may call them once
 * board_identify() has answered.
 */
#ifndef ZORV_MODEL_H
#define ZORV_MODEL_H

#include <zorv/api.h>

ZORV_BEGIN

/* Generations of access points. */
int is_gen1(void);
int is_gen2(void);
int is_gen3_HT(void);
int is_single_5ghz_gen3(void);
int is_gen3(void);            /* either of the two above */
int is_kbr5(void);            /* system ids 0x5231 to 0x5235, 0x5241 and 0x5261 */
int is_kbr6(void);            /* 0x5271 to 0x5278, 0x5288, 0x5295 and 0x5296 */
int is_kbr6_enterprise(void); /* of those, 0x5275 and 0x5277 */
int is_kbr6_birch_lt(void);   /* of those, 0x5273 and 0x5277 */
int is_qca_ap(void);          /* generation 2, generation 3 or kbr6, but not kbr5 */

/* Wi-Fi only, and those of them that look for network loops by force. */
int is_wifi_only(void);
int is_force_detect_loop(void);

/*
 * The board that can be a mesh unit, system id 0x5288, in either mode: with or without
 * /etc/meshmode.conf. The file is looked for all the same, on purpose: what watches accesses to it
 * sees that the mode was asked for.
 */
int is_qm(void);

/* System id 0x5295; and 0x5288 while /etc/meshmode.conf exists. */
int is_router_to_mesh(void);

ZORV_END

#endif
