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

#pragma GCC visibility push(default)

/** One message as it arrived. Everything in it is valid during the callback only. */
typedef struct OzuMqttMessage {
    const char *topic;          /**< the topic it was published to */
    const char *senderLabel;    /**< empty when the sender gave none */
    int messageClass;           /**< 0 when the sender gave none */
    int command;                /**< 0 when the sender gave none */
    unsigned int payloadLength; /**< bytes */
    const void *payload;        /**< null when payloadLength is 0 */
} OzuMqttMessage;

/**
 * What mqttArg points to, for implementations that deliver messages to a function of the process (the
 * reference platform does). It is copied by mqttc_connect().
 */
typedef struct OzuMqttArg {
    /** Called for each message on the session's own thread, one at a time. It may publish and subscribe (a
        subscription made here returns at once); it must not connect, disconnect or block for long. Null:
       none. */
    void (*onMessage)(const OzuMqttMessage *message, void *user);
    void *user; /**< handed to onMessage */
} OzuMqttArg;

/**
 * Opens the process's session.
 * @param host        address of the broker
 * @param port        its TCP port
 * @param clientName  name of the session, unique on the broker
 * @param mqttArg     the implementation's own argument: null, or a pointer to an OzuMqttArg
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

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* MQTTC_H */
