/*
 * Interface and address helpers.
 */
#ifndef UTILS_OZU_INTERFACES_H
#define UTILS_OZU_INTERFACES_H

#include <netinet/in.h>

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Reads the IPv4 address of a network interface, and optionally its broadcast address.
 *
 * @param addr    receives the address with family AF_INET and port 0; must not be null. Cleared once a socket
 *                is open, so an interface without an address leaves it all zeros.
 * @param bcast   optional; receives the broadcast address in the same form. Untouched when the address itself
 *                could not be read.
 * @param ifname  name of the interface; only the first 15 characters count
 * @return 0 on success (logs each address at 30000);
 *         7 when no socket could be opened (nothing logged, outputs untouched);
 *         8 when the kernel refused a request (logs at 70000), e.g. for an unknown interface or one without
 *         an address. When only the broadcast request failed, addr keeps the address.
 *
 * May run concurrently; what it logs goes through inet_ntoa()'s buffer, of which every thread has its own.
 */
OZU_API int ozuutils_gethostIPv4byIfname(struct sockaddr_in *addr, struct sockaddr_in *bcast,
                                         const char *ifname) OZU_NOEXCEPT;

/**
 * Reads the IPv4 address of a network interface as dotted text.
 *
 * @param ifname  name of the interface; only the first 15 characters count
 * @param ipText  at least 16 bytes; on success receives the null-terminated text. The rest of the 16 bytes
 *                has no meaning. Untouched on failure.
 * @return 0 on success (nothing logged);
 *         -1 for a null argument (nothing logged), and when no socket could be opened or the kernel refused
 *         the question (logs at 50000).
 *
 * May run concurrently; the text goes through inet_ntoa()'s buffer, of which every thread has its own.
 */
OZU_API int get_device_ip(const char *ifname, char *ipText) OZU_NOEXCEPT;

/**
 * Returns whether a text begins like a dotted IPv4 literal that may be a host on the panel's networks: four
 * numbers, the third from 1 to 255, the others from 0 to 255. So 10.0.1.0 is accepted, 10.0.0.1 is not. What
 * follows the fourth number is ignored as long as it is digits and dots: "1.2.3.4.5" is accepted as 1.2.3.4.
 * Leading zeros do not matter; the numbers are decimal.
 *
 * The four numbers are stored when all four pointers are given, also when their range is refused; of a text
 * with fewer numbers those found. Nothing is stored with a null pointer among the four, nor for a text with
 * anything but digits and dots.
 *
 * @param s        the text; not null
 * @param a,b,c,d  receive the numbers, first to last; may be null
 * @return 1 when accepted (nothing logged);
 *         0 for a text with anything but digits and dots (logs at 10000), with fewer than four numbers, the
 *         empty text included, or with a number out of range (both log at 70000)
 */
OZU_API int is_valid_ip(const char *s, int *a, int *b, int *c, int *d) OZU_NOEXCEPT;

/**
 * Returns whether inet_pton() accepts a text as an IPv4 address: exactly four numbers from 0 to 255, without
 * leading zeros.
 *
 * @param cp  the text; not null
 * @return 1 or 0; logs nothing
 */
OZU_API int isValidIpAddress(const char *cp) OZU_NOEXCEPT;

/**
 * Extracts the host from a URL of the form `scheme://user@host:port/path`.
 *
 * The host starts after the first "@", else after the first "://", else at the beginning. It ends before the
 * first ":" after that, else before the first "/", else at the end of the text. So "host/a:b" gives "host/a".
 *
 * An "@" or ":" counts anywhere, even in a path or a query.
 *
 * @param url       the URL; not changed
 * @param host      receives the host, truncated to hostSize - 1 characters and terminated
 * @param hostSize  capacity of host in bytes
 * @return 1 when the host is not empty; 0 when it is empty (host then holds the empty text), and for a null
 *         argument or a hostSize of 0 (host untouched). Logs nothing.
 */
OZU_API int parse_host(char *url, char *host, unsigned int hostSize) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_INTERFACES_H */
