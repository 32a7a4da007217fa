/*
 * Message bus of the panel: one session per process with the local MQTT broker.
 *
 * A result of 0 is success; other codes are the implementation's own.
 */
#ifndef MQTTC_H
#define MQTTC_H

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Opens the process's session.
 * @param host        address of the broker
 * @param port        its TCP port
 * @param clientName  name of the session, unique on the broker
 * @param mqttArg     the implementation's own argument
 */
int mqttc_connect(const char *host, int port, const char *clientName, void *mqttArg);

/** Closes the session that this process opened; does nothing when there is none. */
void mqttc_disconnect(void);

/** Subscribes the session to a topic. */
int ozumqttc_topicSubscribe(const char *topic);

/**
 * Publishes one record.
 * @param topic          the receiver's topic
 * @param payloadLength  bytes of payload
 * @param senderLabel    short text that names the sender, may be empty
 * @param messageClass   class of the message, 0 to 255
 * @param command        command within the class, 0 to 255
 * @param payload        the record; may be null when payloadLength is 0
 */
int ozumqttc_messagePublish(const char *topic, unsigned int payloadLength, const char *senderLabel,
                            int messageClass, int command, const void *payload);

#ifdef __cplusplus
}
#endif

#endif /* MQTTC_H */
