/*
 * Asynchronous resolver with primary and secondary servers.
 *
 * A blocking look-up through c-ares that asks the panel's own DNS servers instead of the system's, on demand
 * through one network device only.
 */
#ifndef UTILS_OZU_RESOLVER_H
#define UTILS_OZU_RESOLVER_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/** Attempts that one call of nslookup_ares() makes: 3. */
OZU_API extern const int ARES_MAX_RETRY; /* NOLINT(bugprone-dynamic-static-initializers) */

/**
 * Initialises c-ares, once per process. Call it early and from one thread; afterwards look-ups may run
 * concurrently. nslookup_ares() calls it when nobody did.
 *
 * @param tag  put before the line that tells of the success; null or empty for none
 * @return 1 when c-ares is initialised (the first time logs at 30000), 0 when it cannot be (logs at 70000)
 */
OZU_API int ares_global_library_init(const char *tag) OZU_NOEXCEPT;

/** Undoes ares_global_library_init(); does nothing when c-ares is not initialised. Logs nothing. */
OZU_API void ares_global_library_deinit(void) OZU_NOEXCEPT;

/**
 * Resolves a host to one IPv4 address through a primary and a secondary DNS server.
 *
 * Makes up to ARES_MAX_RETRY attempts with time-outs of 5, 1 and 5 seconds per server. The first IPv4 address
 * of the answer counts. c-ares also looks into the hosts file and applies the system's search domains.
 *
 * Each attempt waits once per server for something to arrive and does not wait again. So an answer that
 * is cut short and would continue over TCP is given up; and when the primary server's machine refuses the
 * query because nothing listens there, the look-up fails at once, without the secondary's turn.
 *
 * @param host          host name
 * @param iface         network device that the queries must leave through; null or empty for any. A device
 *                      that does not exist, or binding without the right to (CAP_NET_RAW), leaves the
 *                      queries unbound.
 * @param primaryDns    the primary server's address, dotted; null or empty when there is none
 * @param secondaryDns  the secondary server's address, likewise
 * @param result        at least 16 bytes; receives the dotted address. Emptied when an attempt begins;
 *                      untouched when the arguments are refused.
 * @return 0 with the address in result (logs at 20000);
 *         -1 when c-ares cannot be initialised, without any server, for an empty or null host and a null
 * result (both log at 80000), when no server text is an address, and when nothing answered (log at 70000). A
 * server that fails logs at 50000 and 70000; a look-up without success also logs at 60000 to the remote side.
 *
 * Blocks until a server answers: at most 22 seconds with both servers silent, 11 with one. Stack use is
 * small. May run concurrently once c-ares is initialised.
 */
OZU_API int nslookup_ares(const char *host, const char *iface, const char *primaryDns,
                          const char *secondaryDns, char *result) OZU_NOEXCEPT;

/**
 * Calls nslookup_ares() until it succeeds, at most tries times and at least once.
 *
 * @param host,iface,primaryDns,secondaryDns,result  as for nslookup_ares()
 * @param reserved  not used
 * @param tries     most calls; below 1 counts as 1
 * @return the last call's result
 *
 * Blocks for up to tries times as long as nslookup_ares().
 */
OZU_API int nslookup_ares_n(const char *host, const char *iface, const char *primaryDns,
                            const char *secondaryDns, char *result, int reserved, int tries) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_RESOLVER_H */
