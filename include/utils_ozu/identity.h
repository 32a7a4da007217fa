/*
 * Configuration identity and lookups.
 */
#ifndef UTILS_OZU_IDENTITY_H
#define UTILS_OZU_IDENTITY_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Derives the panel's eight-character identity from the hardware address of its first network interface that
 * is not a loopback, in the kernel's order, up or down.
 *
 * The kernel lists interfaces with an IPv4 address only; the first 32 entries of its list are looked at. So
 * there is no identity before an interface has got its address (static or by DHCP), and it changes when
 * another interface comes first, after a fail-over for instance. Ask once the network is up, and keep the
 * answer.
 *
 * Not every panel has an identity of its own. The hexadecimal form omits the first two bytes of the address.
 * The decimal form omits the third byte and the hundreds of the fourth, and turns a leading 0 into 1: the
 * fourth bytes 5, 15, 105, 115, 205 and 215 all give 15.
 *
 * @param out      receives 8 characters without a terminator; not null; untouched on failure
 * @param decimal  0: the third to sixth byte of the address as lower-case hexadecimal; anything else: the
 *                 last eight digits of the fourth, fifth and sixth byte as "%02u%03u%03u", a leading '0'
 *                 turned into '1'
 * @return 1 (logs nothing); 0 when no socket could be made or no such interface exists (logs at 50000)
 */
OZU_API int calcConfigUniqueId(char *out, int decimal) OZU_NOEXCEPT;

/**
 * Checks an entry of the dialer table.
 *
 * @param id      dialer id, 1 to 16
 * @param checkB  must equal the entry's dialerCheckB
 * @param checkA  must equal the entry's dialerCheckA. Note the order: B comes before A
 * @return index of the first entry with this id, 0 to 15, when both attributes match (logs nothing); -1 when
 *         they do not (logs nothing), and when the shared state is missing, the id is out of range or no
 *         entry has it (log at 70000). An attribute above 255 never matches.
 */
OZU_API int check_dial_table_id(unsigned int id, unsigned int checkB, unsigned int checkA) OZU_NOEXCEPT;

/**
 * Finds the SY9 keyfob of a user.
 *
 * An unassigned keyfob has the user 0, so for user 0 the first unassigned one is found.
 *
 * @param userId  panel user; only its low byte counts, so 256 is user 0
 * @return number of the user's first keyfob, 1 to 10 (logs at 30000); 0 when the user has none (logs at
 *         40000), on product variant 1 (logs at 80000), and when the shared state is missing (logs nothing)
 */
OZU_API int getSY9IdFromUser(unsigned int userId) OZU_NOEXCEPT;

/**
 * Returns whether a device is a UMKRL camera (type 59) with firmware 1.3.2 or later.
 *
 * @param deviceIndex  index into PanelSharedState.devices, enrolled or not
 * @return 1 or 0; 0 also for an index out of range and when the shared state is missing. Logs nothing.
 */
OZU_API int isUmkrlVersionSupportProfile(int deviceIndex) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_IDENTITY_H */
