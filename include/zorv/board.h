/*
 * board.h - which board is this: one record for the unit, and the questions answered from it.
 *
 * The hardware driver publishes a vendor and a system id in /proc/zorvhal/system.info. They choose
 * a row of the compiled-in board table; the copy of that row is then filled with what is the unit's
 * own (CPU MAC address, CPU id, board revision, country) and with the oldest firmware that may run
 * on it. A unit of no table row gets the record "Unknown", with the radios that its PCI bus shows.
 *
 * Three things are kept for the process: the private record of a unit from the table, the default
 * record, and a pointer to the record that board_identify() answers with. They have no lock: the
 * first call is one thread's, before others start. Kept, too, are the table rows that were asked
 * for, each as a record that is made by the first call of any thread. Nothing here logs.
 */
#ifndef ZORV_BOARD_H
#define ZORV_BOARD_H

#include <stddef.h>
#include <stdint.h>

#include <zorv/api.h>

ZORV_BEGIN

struct json_t; /* <jansson.h> */

/* Fields named attribute are the hardware's own: the library carries them and never reads them. */

typedef struct board_port {
    uint8_t phy_idx;
    uint8_t port_id; /* of the switch */
    uint8_t attribute1;
    uint8_t attribute2;
    uint8_t attribute3;
    int32_t attribute4;
    const char *label; /* "Main" and "PoE In + Data" mark the main uplink; NULL for none */
} board_port;

typedef struct board_port_group {
    uint8_t port_count; /* used entries of ports */
    board_port ports[56];
} board_port_group;

typedef struct board_iface {
    char name[8];
    uint32_t attribute1;
    uint32_t attribute2;
} board_iface;

typedef struct board_radio {
    char name[32];
    uint32_t attribute;
    uint16_t subsystem_device; /* PCI ids */
    uint16_t subsystem_vendor;
} board_radio;

/* NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): other programs know this order */
typedef struct board_record {
    char name[64]; /* for display; first, because the record's address is also its name's */
    char platform[32];
    uint8_t attribute1;
    uint32_t attribute2;
    uint8_t cpu_mac[6];
    uint16_t attribute3;
    uint16_t attribute4;
    uint8_t port_group_count; /* used entries of port_groups */
    board_port_group port_groups[9];
    board_iface ifaces[23];
    uint8_t radio_count; /* used entries of radios */
    board_radio radios[4];
    uint16_t system_id;
    uint8_t attribute5[8];
    uint16_t poe_total;     /* power budget, W */
    uint16_t poe_reserved;  /* the part of it held back */
    uint32_t fw_min;        /* oldest firmware that supports the unit, as a version word */
    uint32_t cpuid;         /* 0xFFFFFFFF while unknown */
    int32_t board_revision; /* -1 while unknown */
    uint16_t country_code;  /* ISO 3166 numeric, 0 while unknown */
    const void *data;       /* of the board, passed through */
} board_record;

/*
 * Firmware versions are words of major << 16 | minor << 8 | patch: 0x020404 is 2.4.4. Two values
 * are no versions: 0x090909 as fw_min marks a board of the beta programme, and 0xFFFFFF is more
 * than any version, so that no firmware supports the unit; it also ends each table below.
 */

/* Rules by the maker's part of the CPU MAC address, 0xAABBCC; each list of them ends with 0. */
typedef struct board_fw_oui {
    uint32_t firmware;
    const uint32_t *ouis;
} board_fw_oui;

/* Rules by the board revision, compared as signed numbers; both bounds belong to the range. */
typedef struct board_fw_boardrev {
    uint32_t firmware;
    uint32_t lowest;
    uint32_t highest;
} board_fw_boardrev;

/* Rules by the revision of the bill of materials, shifted right by 8. */
typedef struct board_fw_bomrev {
    uint32_t firmware;
    uint32_t bomrev;
} board_fw_bomrev;

extern const uint32_t OUI_1_0_0[];
extern const uint32_t OUI_1_2_1[];
extern const uint32_t OUI_2_2_3[];
extern const board_fw_oui g_fw_oui_table[];
extern const board_fw_boardrev g_fw_boardrev_kbracshd_table[]; /* system id 0x3361 */
extern const board_fw_boardrev g_fw_boardrev_kbrachd_table[];  /* system id 0x3351 */
extern const board_fw_boardrev g_fw_boardrev_kbrpro_table[];   /* system id 0x3328 */
extern const board_fw_bomrev g_fw_bomrev_QX4v2_table[];        /* system id 0x5241 */

/*
 * Answers which board this is. The first call finds out, from pluvo_identify() or, for a unit of no
 * table row, from /proc/cpuinfo and the PCI bus; later calls return the same record unchanged,
 * unless update_cached_board() or get_board() touched it. Never NULL. The record is static.
 */
const board_record *board_identify(void);

/*
 * Makes board_identify() answer with a record of the caller's, borrowed until the next call of this
 * function. NULL forgets the answer: a unit of no table row is then looked at anew by the next
 * board_identify(), the radios of the default record included. The private record of a unit from
 * the table stays, and is the answer again.
 */
void update_cached_board(const board_record *record);

/*
 * Reads the ids of the unit. Each is set as soon as it is found, even when the other one is not;
 * the last line of an id counts.
 *
 *   vendorid, systemid  [in,out] 0x1F3D is the vendor of the boards in the table
 *
 * Returns 0 when both were found, -1 when one is missing or a pointer is NULL, -ENOENT when
 * /proc/zorvhal/system.info cannot be opened, for whatever reason.
 */
int board_identify_ids(uint16_t *vendorid, uint16_t *systemid);

/*
 * Both look a platform up, "TARN-Console", case-sensitively. Return the table row, static; NULL for
 * none, or without memory for its record.
 */
const board_record *board_identify_platform(const char *platform);
const board_record *pluvo_identify_platform(const char *platform);

/*
 * Returns the name to show for a record: some boards of one system id are told apart by their first
 * radio, and have names of their own. Borrowed from the record or static; NULL for NULL.
 */
const char *map_board_name(const board_record *record);

/* Returns what the powered ports may draw together: the total less the reserve, never below 0. */
unsigned board_get_poe_budget(void);
/* Returns 1 when that budget is not 0, else 0. */
int board_has_poe(void);

/* Copies the CPU MAC address. Returns 0, or -1 with nothing written when mac is NULL. */
int board_get_cpu_mac(uint8_t mac[6]);

/*
 * Finds the main uplink. Groups are taken in order: the port of a group of one is it at once, in a
 * larger group the first port labelled "Main" or "PoE In + Data" is. So a group of one wins over a
 * label further on, on purpose, and a label over a group of one further on.
 *
 * Returns the port, borrowed from the record, or NULL; the other two its port id or PHY index, or
 * -1.
 */
const board_port *get_main_phy(void);
int get_main_phy_port_id(void);
int get_main_phy_idx(void);

/* Returns the switch port id of the first port with a PHY index, or -1. */
int get_phy_port_id_by_idx(int idx);

/* Returns the number of Ethernet ports over all groups. */
int get_num_of_eth_ports(void);

/*
 * Translates the name of a CPU architecture, in either case: 0 "ar2313", 1 "ar2316", 2 "ar7100",
 * 3 "ar7240", 4 "ar933x"; 43 is any other name, and any length but 6.
 */
unsigned arch_name_to_type(const char *name, size_t length);

/* Returns 1 when the unit has an accelerometer: its directory below /sys opens. Else 0. */
int has_accelerometer(void);

/*
 * Reads the accelerometer, after setting its sampling frequency to 50 Hz. Returns an object, owned
 * (json_decref), with the raw integers "x", "y" and "z"; an axis that cannot be read is 0. NULL
 * without memory.
 */
struct json_t *prepare_accelerometer_status(void);

/* Returns the table row of a system id, static; NULL for none, or without memory for its record. */
const board_record *pluvo_get_board(uint16_t system_id);

/*
 * Reads /proc/zorvhal/system.info and returns the private record, static and made afresh from the
 * table row with every call: cpuid, board_revision and country_code start anew, and fw_min starts
 * from the row and is raised by the rules above. Once a row has matched, a later call for which
 * none does refreshes the record in place, without lowering fw_min; when the file cannot be opened
 * the record stays as it is.
 *
 * What board_identify() returned before is the same record and changes with it.
 *
 * Returns NULL while no row of the table has ever matched.
 */
const board_record *get_board(void);

/* Returns the private record as it stands, and calls get_board() only when there is none yet. */
const board_record *pluvo_identify(void);

/*
 * Reads the revision of the bill of materials from /proc/zorvhal/board: the hexadecimal number
 * behind the last "=" of the last line that begins with "bomrev". Returns its low 32 bits, 0
 * without such a line, 0xFFFFFFFF when the file cannot be opened.
 */
uint32_t pluvo_get_bomrev(void);
/* Returns the same without its low 8 bits, which change with every batch. */
uint32_t pluvo_get_hw_board_id(void);

/* Returns 1 for a record of the beta programme (fw_min is 0x090909), 0 for others and NULL. */
int pluvo_board_is_beta_firmware(const board_record *record);

/*
 * Return 1 when the system id of the record is one of a fixed set, 0 for others and NULL: boards
 * that the first generation of wireless firmware supports (the OUI rules are theirs), and boards
 * that can be adopted over Bluetooth.
 */
int kbr_is_supported_by_old_wifi(const board_record *record);
int kbr_is_supported_ble_fast_adopt(const board_record *record);

ZORV_END

#endif
