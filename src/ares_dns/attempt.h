// One attempt of the asynchronous resolver, driven by hand.
#pragma once

#include <ares.h>
#include <netdb.h>

namespace ozu::ares {

// Takes the first IPv4 address of an answer as text; arg holds 16 bytes. What c-ares calls when a lookup
// ends.
void callback(void *arg, int status, int timeouts, hostent *host) noexcept;

// Opens a channel to these servers: 0, or -1 after a failure, which is logged. The channel is null unless it
// has to be destroyed, which may be so after a failure, too.
int Init_Ares_Channel(ares_channel *channel, ares_options *options, ares_addr_node *servers,
                      const char *iface, int attempt) noexcept;

// Waits once for the channel's sockets and lets c-ares work: 0 when something arrived, otherwise -1.
int Wait_Ares(ares_channel channel) noexcept;

} // namespace ozu::ares
