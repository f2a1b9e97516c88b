/*
 * hardware.h - small hardware readers: the EEPROM image, PCI devices of a vendor, power outlets.
 *
 * Every call reads the device anew. Nothing is kept and nothing is logged. Any thread may call any
 * function.
 */
#ifndef ZORV_HARDWARE_H
#define ZORV_HARDWARE_H

#include <stdint.h>

#include <zorv/api.h>
#include <zorv/buffer.h>

ZORV_BEGIN

struct json_t; /* <jansson.h> */

typedef struct pci_entry {
    uint8_t bus;
    uint8_t slot;     /* 0 to 31 */
    uint8_t function; /* 0 to 7 */
    uint16_t vendor;
    uint16_t device;
    uint16_t subsystem_device;
    uint16_t subsystem_vendor;
    uint8_t revision;
    uint32_t irq;
} pci_entry;

/*
 * Reads the EEPROM: the first flash partition of /proc/mtd whose name is "EEPROM" in any case,
 * through /dev/mtdN or else /dev/mtd/N. Where /proc/mtd is missing or names no such partition, the
 * file EEPROM in the current directory is read in its place, on purpose: bring-up tools work on a
 * saved image.
 *
 * Returns a buffer with exactly 65536 bytes, owned (buffer_destroy), or NULL when the partition
 * cannot be opened, is shorter, or memory is short.
 */
buffer *zorv_read_eeprom(void);

/*
 * Lists the PCI devices of a vendor, in the order of /proc/bus/pci/devices.
 *
 *   entries  [out] room for max of them
 *
 * The subsystem ids and the revision come from the device's configuration space below
 * /proc/bus/pci. Where that is missing they stay as the caller had them. The subsystem ids stand
 * byte-swapped, on purpose: board tables carry them so. Where the configuration space ends early,
 * what it does hold stands as the device has it, not swapped.
 *
 * Returns the number of entries filled, or -1 when the list cannot be opened or entries is NULL.
 */
int pci_detect(pci_entry *entries, int max, uint16_t vendor);

/* Returns the status of the power outlets, an object, owned; always NULL in this build. */
struct json_t *zorv_outlet_get_outlet_status_json(void);

/*
 * Merges the status of the outlets into an object. Returns what json_object_update() says, and 0
 * when there is no status: always, in this build, with payload left alone.
 */
int zorv_outlet_status_update_json_payload(struct json_t *payload);

/* Returns the table of power-supply units, an object, owned; always NULL in this build. */
struct json_t *zorv_psu_get_json_psu_table(void);

ZORV_END

#endif
