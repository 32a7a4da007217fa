/*
 * Messenger library of the panel: events from one panel process to all others.
 */
#ifndef MESSENGER_H
#define MESSENGER_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Classes of events, permanent. */
typedef enum MessengerEventClass {
    MESSENGER_EVENT_BYPASS = 1 /**< bypass of a zone */
} MessengerEventClass;

/** Events of MESSENGER_EVENT_BYPASS, permanent. */
typedef enum MessengerBypassEvent {
    MESSENGER_BYPASS_ENDED = 2 /**< it ended by itself */
} MessengerBypassEvent;

/** Stands for a user where none caused the event. */
#define MESSENGER_NO_USER 65535

/**
 * Reports an event of a device.
 * @param deviceIndex  index into PanelSharedState.devices
 * @param deviceType   its type, a PanelDeviceType
 * @param eventClass   class of the event, a MessengerEventClass
 * @param eventCode    event within the class, for example MESSENGER_BYPASS_ENDED
 * @param partition    partition concerned, 0 when none is
 * @param input        input of the device, from 0
 * @param user         panel user who caused it, MESSENGER_NO_USER for none
 * @return 0, or the implementation's code
 */
int MESSENGER_SendTBBEvent(int deviceIndex, int deviceType, int eventClass, int eventCode, int partition,
                           int input, int user);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* MESSENGER_H */
