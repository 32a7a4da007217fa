/*
 * Partitions, alarm types and the security event log.
 *
 * The security core calls them partitions (inc_ozu/security_ozu.h). The panel's Lum interface calls them
 * zones ("main" 0, "perimeter" 1, "safety" 2, "panic" 3) with arm types ("full" 0, "partial1" 1,
 * "partial2" 2). docs/glossary.md explains the words.
 */
#ifndef UTILS_OZU_PARTITIONS_H
#define UTILS_OZU_PARTITIONS_H

#include <inc_ozu/security_ozu.h>
#include <stdint.h>
#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Writes a security command to the system event log: "Command:=%s, Partition:=%s, Media:=%s", truncated to
 * 199 characters. Commands 0, 1, 2 go to limited_log_system_event(11, 1), commands 4 and 5 to
 * limited_log_system_event(12, 1), every other one, 3 included, to LOG_system_event(1).
 *
 * @param cmd        a sec_cmd value; one above MAX_SEC_CMD is written as "ERR ENUM" (logs at 80000)
 * @param partition  a sec_partition value; one above MAX_PARTITION_ID is written as "ERR ENUM"
 *                   (logs at 80000)
 * @param media      text that says where the command came from; not null
 * @return what the event log returned
 */
OZU_API int writeSecurityCmdToSystemLog(unsigned int cmd, unsigned int partition,
                                        const char *media) OZU_NOEXCEPT;

/**
 * Writes a security event to the system event log, truncated to 199 characters:
 * "SECURITY EVENT: Type [ %s ] Partition [ %s ] Media [ %s ]". A panic event (12) in the panic partition (7)
 * goes to limited_log_system_event(8, 6), everything else to LOG_system_event(1).
 *
 * Parameters and result as writeSecurityCmdToSystemLog().
 */
OZU_API int writeSecurityEventToSystemLog(unsigned int cmd, unsigned int partition,
                                          const char *media) OZU_NOEXCEPT;

/**
 * Returns when a zone was last disarmed.
 *
 * @param zone  "main" (the latest of partitions 0, 1 and 2), "perimeter" (3) or "safety" (6); not null
 * @param time  receives UTC seconds; untouched on failure. The times are stored signed: one below 0 counts as
 *              0 for "main"; for the other two its 32 bits come unsigned, -1 as 4294967295.
 * @return 0; 4 for any other zone, "panic" included (logs at 50000), and when the shared state is missing
 *         (logs nothing)
 */
OZU_API int ozuutils_getDisarmTimestamp(const char *zone, uint32_t *time) OZU_NOEXCEPT;

/**
 * Translates a zone and an arm type into a partition.
 *
 * @param zone       "main", "perimeter", "safety" or "panic"; not null
 * @param armType    "full", "partial1" or "partial2" for "main", "full" for "perimeter", and for both
 *                   "FIND_ARM_TYPE": the first partition of the zone whose state is not 1, disarmed. Not
 *                   looked at for "safety" and "panic", where it may be null.
 * @param partition  receives the sec_partition value; untouched on failure
 * @return 0; 4 for an unknown word or combination (logs at 70000); 4 without a line when FIND_ARM_TYPE finds
 *         everything disarmed or the shared state is missing
 */
OZU_API int ozuutils_getSecPartition(const char *zone, const char *armType, uint32_t *partition) OZU_NOEXCEPT;

/**
 * Translates a partition into zone and arm type numbers.
 *
 * @param partition  a sec_partition value
 * @param zone       receives 0 to 3; untouched on failure
 * @param armType    receives 0 to 2; untouched on failure
 * @return 0; 4 for a partition without a zone: 4, 5, 8 and larger (logs at 70000)
 */
OZU_API int ozuutils_getLumPartition(unsigned int partition, uint32_t *zone, uint32_t *armType) OZU_NOEXCEPT;

/**
 * Translates an alarm word into its number.
 *
 * @param word       "flood" 1, "smoke" 2, "gas" 3, "intrusion" 4, "panic" 5, "duress" 6 or "shock" 7; not
 *                   null
 * @param alarmType  receives the number; untouched on failure
 * @return 0; 4 for any other word, "none" included (logs at 70000)
 */
OZU_API int ozuutils_getLumAlarmType(const char *word, uint32_t *alarmType) OZU_NOEXCEPT;

/**
 * Writes the opening or closing of a connected IPv4 socket to the system event log (category 14):
 * "SOCKET %s: Server [ %s ] Port [ %d ] Name [ %s ]", truncated to 199 characters. The port is the 16-bit
 * number in network byte order, unconverted: port 80 is written as 20480. A socket that is not connected, or
 * none at all, is written as server 0.0.0.0 with port 0.
 *
 * The name is not that of the server. The resolver gets the whole socket address and reads its first four
 * bytes, the family and the port, as an address: for port 80 the name of 2.0.0.80 is written, for port
 * 443 that of 2.0.1.187. "NONAME" means no answer, which is the usual case.
 *
 * @param socket  connected IPv4 socket; stays open
 * @param opened  0 closing, anything else opening
 * @return 0 always
 *
 * Blocks while the system resolver answers: about 10 seconds for every server of /etc/resolv.conf that is
 * silent. Not to be called concurrently with itself or gethostbyaddr().
 */
OZU_API int ozuutils_sysLogSocketPrinter(int socket, int opened) OZU_NOEXCEPT;

/**
 * Writes one HTTP(S) request to the system event log (category 14):
 * "HTTP: Action [ %s ] Server [ %s ] Iface [ %s ] Result [ %s ]", truncated to 229 characters.
 *
 * @param action  what was asked for; not null
 * @param server  who was asked; not null
 * @param iface   network interface; not null; empty is written as "<auto>"
 * @param result  above 99 an HTTP status, written "HTTP Status Code (%d)"; otherwise a code of the transfer
 *                library, written "CURL (%d)"
 * @return what the event log returned
 */
OZU_API int ozuutils_sysLogHTTPSPrinter(const char *action, const char *server, const char *iface,
                                        int result) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_PARTITIONS_H */
