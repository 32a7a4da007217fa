/*
 * Configuration identity and look-ups.
 */
#ifndef UTILS_OZU_IDENTITY_H
#define UTILS_OZU_IDENTITY_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Derives the panel's eight-character identity from the hardware address of its first network interface that
 * is not a loopback, in the kernel's order, up or down.
 *
 * @param out      receives 8 characters without a terminator; untouched on failure
 * @param decimal  0: bytes 2 to 5 of the address as lower-case hexadecimal; anything else: the last eight
 * digits of bytes 3, 4 and 5 as "%02u%03u%03u", a leading '0' turned into '1'
 * @return 1; 0 when no socket could be made or no such interface exists (logs at 50000)
 */
OZU_API int calcConfigUniqueId(char *out, int decimal) OZU_NOEXCEPT;

/**
 * Checks an entry of the dialer table.
 *
 * @param id      dialer id, 1 to 16
 * @param checkB  must equal the entry's dialerCheckB
 * @param checkA  must equal the entry's dialerCheckA; mind the order
 * @return index of the first entry with this id, 0 to 15, when both attributes match; -1 when they do not,
 * and (logs at 70000) when the shared state is missing, the id is out of range or no entry has it
 */
OZU_API int check_dial_table_id(unsigned int id, unsigned int checkB, unsigned int checkA) OZU_NOEXCEPT;

/**
 * Finds the SY9 keyfob of a user.
 *
 * @param userId  panel user; only its low byte counts
 * @return number of the user's first keyfob, 1 to 10 (logs at 30000); 0 when the user has none (logs at
 * 40000), on product variant 1 (logs at 80000), and when the shared state is missing
 */
OZU_API int getSY9IdFromUser(unsigned int userId) OZU_NOEXCEPT;

/**
 * Tells whether a device is a UMKRL camera (type 59) with firmware 1.3.2 or later.
 *
 * @param deviceIndex  index into PanelSharedState.devices
 * @return 1 or 0; 0 also for an index out of range and when the shared state is missing
 */
OZU_API int isUmkrlVersionSupportProfile(int deviceIndex) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_IDENTITY_H */
