/*
 * Raw DNS query client: one UDP query to a given server, one reply.
 *
 * The first datagram that arrives is taken as the reply. Neither its sender nor its identifier is compared
 * with the query. Use nslookup_ares() for names on which security depends.
 */
#ifndef UTILS_OZU_RAW_DNS_H
#define UTILS_OZU_RAW_DNS_H

#include <utils_ozu/export.h>

#include <stddef.h>

OZU_BEGIN_DECLS

/**
 * Asks one DNS server, at port 53, for a host and takes the address of the last A record among the reply's
 * answers. Only the first 20 records of each section count.
 *
 * @param host          host name, at most 98 characters, with or without a final "."
 * @param queryType     type of the question; 1 asks for an IPv4 address
 * @param dnsServer     the server's address, dotted
 * @param dnsServerLen  not 0; otherwise unused
 * @param ipOut         receives the dotted address, filled up with zeros to ipOutSize bytes. Untouched when
 *                      nothing was found: empty it first and check whether it still is.
 * @param ipOutSize     capacity of ipOut in bytes; 16 hold any address. A smaller buffer gets the beginning
 *                      of the address, without a terminator when it is full; with 0 nothing is written and
 *                      the addresses are only logged.
 *
 * Logs the question and every record that counts at 20000. The name in these lines is the same for all
 * records of a reply: the one decoded last, which may be bytes of a record that holds no name. Only addresses
 * and aliases are each record's own.
 *
 * Logs at 70000 a null argument, a dnsServerLen of 0, a host name that is too long, the failure of a system
 * call (a timeout is one), and a malformed reply, which is ignored as a whole. Malformed is a reply
 * that is cut short, one with an address of fewer than 4 bytes among its answers or additional records, and
 * one with a bad name: longer than 255 bytes, or with a pointer that leads forwards, out of the reply or
 * into its header. The names that count are the records' own and the data of NS, CNAME, PTR and DNAME
 * records; of records beyond the first 20 only their own, up to the first pointer.
 *
 * Blocks for 20 seconds on a server that does not answer, to which the kernel's coarse timers add up to 2.1
 * seconds. A signal handler that runs meanwhile ends the wait as a failure. Uses some 118 KB of stack. Not to
 * be called concurrently with itself or nslookup_ozu().
 */
OZU_API void NgetHostByName(const char *host, int queryType, const char *dnsServer, size_t dnsServerLen,
                            char *ipOut, size_t ipOutSize) OZU_NOEXCEPT;

/**
 * Resolves a host through a primary and a secondary DNS server, and through the system resolver when both
 * give nothing. Empty ipOut before the call: while it holds a text, neither the secondary server nor the
 * system resolver is asked, and the result is 0. Of several addresses in an answer the last one is used.
 *
 * @param host       host name
 * @param dns1       the primary server's address, dotted; empty when there is none
 * @param dns2       the secondary server's address, in the same form
 * @param ipOut      receives the dotted address
 * @param ipOutSize  capacity of ipOut in bytes, not 0; 16 hold any address. A smaller buffer gets the
 *                   beginning of the address, from the system resolver with a terminator, from a server as
 *                   NgetHostByName() writes it.
 * @return 0 when ipOut is not empty afterwards;
 *         -1 when it is; for a null argument or a size of 0, and when the system resolver finds nothing (both
 *         log at 70000). The queries log as NgetHostByName() does.
 *
 * Blocks as long as NgetHostByName() per server, and then as long as the system resolver is configured to
 * wait. Not to be called concurrently with itself, NgetHostByName() or other users of gethostbyname().
 */
OZU_API int nslookup_ozu(const char *host, const char *dns1, const char *dns2, char *ipOut,
                         size_t ipOutSize) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_RAW_DNS_H */
