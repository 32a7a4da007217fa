/*
 * A panel process that does what it is told, one line of standard input at a time, and answers each with one
 * line.
 *
 * usage: panel_process NAME
 *
 *   init              -> init CODE
 *   subscribe TOPIC   -> subscribe CODE
 *   publish TOPIC N   -> publish CODE     (four bytes, little-endian; label "TEST", class 1, command 2)
 *   flood TOPIC N MS  -> flood N          (0 to N-1, a pause of MS between two; repeats what is not accepted)
 *   inflight          -> inflight 0 or 1
 *   fork              -> fork STATUS      (a child that leaves through exit)
 *   secrets KEEP      -> secrets CODE     (the database key and the ciphers of /tmp/secret and /tmp/video
 * with the key of /tmp/key; the process wipes its own copies unless KEEP is 1) exit (ends with 0)
 *
 * A message that arrives is told as: message TOPIC LABEL CLASS COMMAND HEX
 */
#include <fcntl.h>
#include <mqttc.h>
#include <ozudb.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utils_ozu/crypto.h>
#include <utils_ozu/database_key.h>
#include <utils_ozu/process.h>
#include <utils_ozu/state.h>

static void on_message(const OzuMqttMessage *message, void *user) {
    const unsigned char *bytes = message->payload;
    char hex[129] = "";

    (void)user;
    for (unsigned int i = 0; i < message->payloadLength && i < 64; i++) {
        snprintf(hex + 2 * i, 3, "%02x", bytes[i]);
    }
    printf("message %s %s %d %d %s\n", message->topic, message->senderLabel, message->messageClass,
           message->command, hex);
}

static OzuMqttArg bus = {on_message, NULL};

static int publish(const char *topic, unsigned int number) {
    unsigned char payload[4] = {(unsigned char)number, (unsigned char)(number >> 8),
                                (unsigned char)(number >> 16), (unsigned char)(number >> 24)};

    return ozumqttc_messagePublish(topic, sizeof payload, "TEST", 1, 2, payload);
}

static void flood(const char *topic, unsigned int count, unsigned int pause_ms) {
    for (unsigned int number = 0; number < count; number++) {
        while (publish(topic, number) != 0) {
            usleep(10 * 1000);
        }
        usleep(pause_ms * 1000);
    }
}

static int fork_and_leave(void) {
    int status = -1;
    pid_t child = fork();

    if (child == 0) {
        exit(3); /* runs the exit handlers, as a careless child does */
    }
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

static struct {
    char database_key[41];
    unsigned char file_key[16];
} own;

static unsigned int use_secrets(int keep) {
    unsigned int result = 0;
    int key = open("/tmp/key", O_RDONLY | O_CLOEXEC);

    result |= read(key, own.file_key, sizeof own.file_key) == (ssize_t)sizeof own.file_key ? 0U : 1U;
    close(key);
    result |= (unsigned int)ozuutils_getDBcypher(own.database_key);
    result |= ozuutils_crypt_aes128ecb("/tmp/secret", "/tmp/secret.aes", own.file_key, 1);
    result |= ozuutils_crypt_aes128ecb("/tmp/secret.aes", "/tmp/secret.back", own.file_key, 0);
    result |= decryptVideoFile("/tmp/video", own.file_key, sizeof own.file_key, 0);
    if (!keep) {
        explicit_bzero(&own, sizeof own);
    }
    return result;
}

int main(int argc, char **argv) {
    char line[256];
    char verb[32];
    char topic[128];
    unsigned int number = 0;
    unsigned int pause_ms = 0;

    if (argc != 2) {
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);
    while (fgets(line, sizeof line, stdin) != NULL) {
        int words = sscanf(line, "%31s %127s %u %u", verb, topic, &number, &pause_ms);
        if (words >= 1 && strcmp(verb, "init") == 0) {
            printf("init %d\n", ozuutils_processInit(argv[1], &bus));
        } else if (words == 1 && strcmp(verb, "armtype") == 0) {
            printf("armtype %d\n", (int)getCurArmType());
        } else if (words == 2 && strcmp(verb, "subscribe") == 0) {
            printf("subscribe %d\n", ozumqttc_topicSubscribe(topic));
        } else if (words == 3 && strcmp(verb, "publish") == 0) {
            printf("publish %d\n", publish(topic, number));
        } else if (words == 4 && strcmp(verb, "flood") == 0) {
            flood(topic, number, pause_ms);
            printf("flood %u\n", number);
        } else if (words == 1 && strcmp(verb, "inflight") == 0) {
            unsigned char in_flight = 0;
            ozudb_isInFlightData(&in_flight);
            printf("inflight %d\n", in_flight != 0);
        } else if (words == 1 && strcmp(verb, "fork") == 0) {
            printf("fork %d\n", fork_and_leave());
        } else if (words == 2 && strcmp(verb, "secrets") == 0) {
            printf("secrets %u\n", use_secrets(topic[0] == '1'));
        } else if (words == 1 && strcmp(verb, "exit") == 0) {
            return 0;
        } else {
            printf("what? %s", line);
        }
    }
    return 0;
}
