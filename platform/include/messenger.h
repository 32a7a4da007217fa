/*
 * Messenger library of the panel: events from one panel process to all others.
 */
#ifndef MESSENGER_H
#define MESSENGER_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/**
 * Reports an event of a device.
 * @param deviceIndex  index into PanelSharedState.devices
 * @param deviceType   its type code
 * @param eventClass   class of the event (1: zone bypass)
 * @param eventCode    event within the class (2: ended by itself)
 * @param partition    partition concerned, 0 when none is
 * @param input        input of the device, from 0
 * @param user         panel user who caused it, 65535 for none
 * @return 0, or the implementation's code
 */
int MESSENGER_SendTBBEvent(int deviceIndex, int deviceType, int eventClass, int eventCode, int partition,
                           int input, int user);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* MESSENGER_H */
