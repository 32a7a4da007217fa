/*
 * Routing table and default gateway.
 */
#ifndef UTILS_OZU_ROUTES_H
#define UTILS_OZU_ROUTES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Adds a static IPv4 route and confirms it: the route is added again until the kernel answers that it exists.
 * Needs CAP_NET_ADMIN.
 *
 * A text that is not an address counts as 255.255.255.255.
 *
 * @param dest    destination address, dotted; not null
 * @param gw      gateway address, dotted; used only with flag 0x2, and may be null
 * @param mask    network mask, dotted; not null
 * @param dev     network interface; null lets the kernel choose
 * @param metric  the route's metric, 0 to 32766
 * @param flags   RTF_* flags of <net/route.h>, 16 bits: 0x1 up, 0x2 gateway, 0x4 host
 * @return 0 when the kernel confirmed the route in one of the first three attempts, or accepted it four
 *         times, and no attempt failed;
 *         -1 when any attempt failed, even if a later one confirmed the route, and when only the fourth
 *         attempt confirmed it (logs at 50000). Logs the arguments at 30000, each answer of the kernel that
 *         is not a success at 10000, each failure at 70000.
 *
 * Blocks for 1 second per attempt that reached the kernel: 1 second for a route that exists, 2 for a new one,
 * 4 at most. A signal handler that runs cuts the second short. Concurrent calls for the same route
 * confirm each other.
 */
OZU_API int checkRouteAndAdd(const char *dest, const char *gw, const char *mask, const char *dev, int metric,
                             int flags) OZU_NOEXCEPT;

/**
 * Removes a static IPv4 route. Parameters as for checkRouteAndAdd().
 *
 * @return 0, also when the kernel refused (logs at 10000);
 *         -1 when no socket could be opened (logs at 70000)
 *
 * Does not block.
 */
OZU_API int checkRouteAndDel(const char *dest, const char *gw, const char *mask, const char *dev, int metric,
                             int flags) OZU_NOEXCEPT;

/**
 * Finds the gateway of the first IPv4 route of the main table that has one and leaves through an interface
 * whose name contains a text. The route's destination does not matter. A multipath route has its gateways
 * elsewhere and is not found.
 *
 * @param reserved  not used
 * @param gateway   at least 16 bytes; receives the dotted gateway on success, untouched otherwise
 * @param ifname    part of an interface name ("eth" finds routes through eth0 and eth1); the empty text is
 *                  part of every name; null finds nothing
 * @return 0 on success;
 *         -1 when there is no such route (nothing logged), for a null gateway, when the kernel could not be
 *         asked, and when its answer is damaged or larger than 8,192 bytes, which some 100 routes fill (each
 *         logs at 70000). A process whose ID is above 32768 finds nothing.
 *
 * Blocks until the kernel has answered. May run concurrently; the text goes through inet_ntoa()'s buffer, of
 * which every thread has its own.
 */
OZU_API int retrieveDefGateway(int reserved, char *gateway, const char *ifname) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_ROUTES_H */
