/*
 * Raw DNS query client: one UDP query to a given server, one reply.
 *
 * A reply is taken from whoever sends it first: neither its sender nor its identifier is compared with the
 * query. Use nslookup_ares() for names on which security depends.
 */
#ifndef UTILS_OZU_RAW_DNS_H
#define UTILS_OZU_RAW_DNS_H

#include <utils_ozu/export.h>

#include <stddef.h>

OZU_BEGIN_DECLS

/**
 * Asks one DNS server, at its port 53, for a host and takes the address of the last A record of the reply's
 * answers. Of each section the first 20 records count.
 *
 * @param host          host name, at most 98 characters, with or without a final "."
 * @param queryType     type of the question; 1 asks for an IPv4 address
 * @param dnsServer     the server's address, dotted
 * @param dnsServerLen  anything but 0
 * @param ipOut         receives the dotted address, filled up with zeros to ipOutSize bytes. Untouched when
 *                      nothing was found: empty it first and see whether it still is empty.
 * @param ipOutSize     capacity of ipOut in bytes; 16 hold any address. A smaller buffer is filled without a
 *                      terminator.
 *
 * Logs the question and every record of the reply at 20000. Logs at 70000 null or zero arguments, a host name
 * that is too long, the failure of a system call - a time-out is one - and a reply that is cut short, points
 * outside itself or holds a name of more than 255 bytes; such a reply counts as a whole for nothing.
 *
 * Blocks for 20 seconds on a server that does not answer, to which the kernel may add 1.5 seconds; a signal
 * handler that runs meanwhile ends the wait. Uses some 85 KB of stack. Not to be called concurrently with
 * itself or nslookup_ozu().
 */
OZU_API void NgetHostByName(const char *host, int queryType, const char *dnsServer, size_t dnsServerLen,
                            char *ipOut, size_t ipOutSize) OZU_NOEXCEPT;

/**
 * Resolves a host through a primary and a secondary DNS server, and through the system resolver when both
 * give nothing. Empty ipOut before the call: a text in it counts as an answer that has been found.
 *
 * @param host       host name
 * @param dns1       the primary server's address, dotted; empty when there is none
 * @param dns2       the secondary server's address, likewise
 * @param ipOut      receives the dotted address
 * @param ipOutSize  capacity of ipOut in bytes, not 0; 16 hold any address
 * @return 0 when ipOut holds a text;
 *         -1 for a null argument or a size of 0, and when the system resolver finds nothing (both log at
 * 70000). The queries log as NgetHostByName() does.
 *
 * Blocks for at most 20 seconds per server, and then as long as the system resolver is configured to wait.
 * Not to be called concurrently with itself, NgetHostByName() or other users of gethostbyname().
 */
OZU_API int nslookup_ozu(const char *host, const char *dns1, const char *dns2, char *ipOut,
                         size_t ipOutSize) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_RAW_DNS_H */
