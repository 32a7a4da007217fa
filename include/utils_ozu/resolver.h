/*
 * Asynchronous resolver with primary and secondary servers.
 *
 * A blocking lookup through c-ares. It asks the panel's own DNS servers instead of the system's, and can send
 * its queries through one network interface only.
 */
#ifndef UTILS_OZU_RESOLVER_H
#define UTILS_OZU_RESOLVER_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/** Attempts that one call of nslookup_ares() makes: 3. */
OZU_API extern const int ARES_MAX_RETRY; /* NOLINT(bugprone-dynamic-static-initializers) */

/**
 * Initialises c-ares, once per process. Call it early and from one thread; afterwards lookups may run
 * concurrently. nslookup_ares() calls it if needed.
 *
 * @param tag  prefix of the log line about success; null or empty for none
 * @return 1 when c-ares is initialised (the first time logs at 30000), 0 when it cannot be (logs at 70000)
 */
OZU_API int ares_global_library_init(const char *tag) OZU_NOEXCEPT;

/**
 * Undoes ares_global_library_init(); does nothing when c-ares is not initialised. Logs nothing. Not to be
 * called while a lookup runs.
 */
OZU_API void ares_global_library_deinit(void) OZU_NOEXCEPT;

/**
 * Resolves a host to one IPv4 address through a primary and a secondary DNS server.
 *
 * Makes up to ARES_MAX_RETRY attempts with timeouts of 5, 1 and 5 seconds per server. The first IPv4 address
 * of the answer counts.
 *
 * Each attempt waits for one event per server and not again:
 * - An answer that is cut short and would continue over TCP is given up.
 * - When nothing listens on the primary server's machine, its refusal ends both waits: the lookup fails at
 *   once, and the secondary server is not asked.
 * - "No such name" is final: the secondary server is not asked, and the other attempts ask the same again.
 * - A signal handler that runs ends the wait, whatever its flags (logs at 70000).
 * - c-ares applies the system's search domains, and every name tried takes an event: with one server only the
 *   first name tried can be found, with two the first or the second. Write the final dot, "host.example.", to
 *   have just that name asked.
 *
 * A dotted address and a name in the hosts file need no server. They are found, but there is nothing to wait
 * for, so every attempt counts as failed: the warnings and the line at 60000 to the remote side are written
 * although the call succeeds.
 *
 * @param host          host name; not null and not empty
 * @param iface         network interface that the queries must leave through; null or empty for any. A device
 *                      that does not exist leaves the queries unbound without a line. So does a process that
 *                      may not bind: up to Linux 5.6 binding needs CAP_NET_RAW, from 5.7 on no right.
 * @param primaryDns    the primary server's address, dotted; null or empty when there is none
 * @param secondaryDns  the secondary server's address, in the same form
 * @param result        at least 16 bytes; receives the dotted address. Emptied when an attempt begins;
 *                      untouched when c-ares cannot be initialised, the arguments are refused, or no server
 *                      text is an address.
 * @return 0 with the address in result (logs at 20000);
 *         -1 when c-ares cannot be initialised (logs at 70000); without any server, and for a null or empty
 *         host or a null result (log at 80000); when no server text is an address, and when no address was
 *         found (log at 70000). Logs the server texts at 10000, each text that is not an address and each
 *         failed lookup of c-ares at 70000, and each wait that brought nothing at 50000. A call in which
 *         every attempt failed also logs at 60000 to the remote side.
 *
 * Blocks until a server answers: with both servers silent for 22 to 24 seconds, with one for 11 to 12. Stack
 * use is small. May run concurrently once c-ares is initialised.
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
