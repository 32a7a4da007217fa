/*
 * Host-name resolution and the permanent DNS file.
 */
#ifndef UTILS_OZU_HOST_NAMES_H
#define UTILS_OZU_HOST_NAMES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Turns a server's name or dotted address into dotted IPv4 text. An address that is_valid_ip() accepts is
 * written back as its four numbers, without leading zeros and without what followed them; everything else
 * goes to the system resolver, whose first address counts.
 *
 * @param name    host name or dotted address
 * @param ipText  at least 16 bytes, not null; receives the address, untouched on failure
 * @return 0 on success (an address logs at 30000, a name at 10000);
 *         2 when name is null (logs at 70000);
 *         5 when the name cannot be resolved (logs at 70000).
 *         A text of digits and dots that is_valid_ip() refuses logs at 70000, too, and then resolves like a
 *         name: 192.168.0.1 gives 192.168.0.1.
 *
 * Blocks as long as the system resolver is configured to wait, by default up to 10 seconds per server of
 * /etc/resolv.conf and per search domain. Not to be called concurrently: it shares gethostbyname()'s result.
 */
OZU_API int ozuutils_resolve_hostname(const char *name, char *ipText) OZU_NOEXCEPT;

/**
 * Writes the DNS servers of the panel's shared state into /data/permanent-dns.conf, one "nameserver" line
 * each: those of the third record first, the primary before the secondary. Texts of 6 characters or fewer are
 * left out; nothing else about a text is checked. The file is rewritten in place, so a loss of power can
 * leave it empty.
 *
 * @return 0 when the file was written, and when it could not be opened;
 *         2 when the shared state is missing (logs nothing);
 *         8 when a line could not be written (logs at 70000). The lines before it stay, and the beginning of
 *         this one may: "nameserver 10.0.0.5" may be what was left of 10.0.0.53. Do not use the file then.
 *
 * Not to be called concurrently: calls would write into each other's file. A server that another process
 * stores meanwhile may come out as a mixture of its old and its new text, never longer than its field.
 */
OZU_API int write_permanent_dns(void) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_HOST_NAMES_H */
