/*
 * The recorder, its knobs, and the platform's functions on top of them.
 *
 * In C and without malloc(): the test under way may make every allocation of its process fail, count what is
 * left allocated, or measure what the library alone costs a process.
 */
#include "ozu_fake_platform.h"

#include <pthread.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

/* Stops a clock that the test has moved; not there when the program uses no clock of ours. */
__attribute__((weak)) void ozu_fake_clock_stop(void);

enum Function {
    GET_SHARED_MEMORY,
    GET_SEVERITY,
    ADD_PROCESS,
    REBOOT_REASON,
    IN_FLIGHT,
    MODEM_STATISTICS,
    BYPASS_EXPIRY,
    IS_TAG_READER,
    IS_RF_INPUT,
    IS_RF_DETECTOR,
    LOG_INIT,
    LOG_SHORT,
    LOG_EXTENDED,
    LOG_REMOTE,
    CONNECT,
    DISCONNECT,
    SUBSCRIBE,
    PUBLISH,
    SYSTEM_EVENT,
    LIMITED_SYSTEM_EVENT,
    TBB_EVENT,
    PRODUCT,
    FUNCTIONS
};

static const char *const kNames[FUNCTIONS] = {
    "ozudb_getSharedMemory",
    "ozudb_getSeverityNameByProcName",
    "ozudb_addProc2Log",
    "ozudb_updatePanelRebootReason",
    "ozudb_isInFlightData",
    "ozudb_ModifyModemStatistics",
    "ozudb_ModifyBypassExpiry",
    "ozudb_isTagReader",
    "ozudb_isRfInput",
    "ozudb_isRfDetector",
    "ozulog_init",
    "ozulog_printf",
    "ozulog_printf_extend",
    "ozulog_printf_mqtt_transmission",
    "mqttc_connect",
    "mqttc_disconnect",
    "ozumqttc_topicSubscribe",
    "ozumqttc_messagePublish",
    "LOG_system_event",
    "limited_log_system_event",
    "MESSENGER_SendTBBEvent",
    "getProductCodename",
};

enum { kMaxFailures = 64, kMaxLine = 4096, kChunk = 1 << 20, kMaxSeverity = 64 };

/* A piece of memory that texts and entries are cut from. */
struct Chunk {
    struct Chunk *next;
    size_t size;
    size_t used;
};

struct Entry {
    struct Entry *next;
    OzuFakeEntry entry;
};

struct Failure {
    enum Function function;
    unsigned long call;
    int result;
    int armed;
};

static struct {
    struct Chunk *chunks;
    struct Entry *first;
    struct Entry *last;
    size_t count;
    unsigned long calls[FUNCTIONS];

    int recordNothing;
    PanelSharedState *state; /* what the platform hands out, unless it is its own record */
    int otherState;
    int results[FUNCTIONS];
    struct Failure failures[kMaxFailures];
    char severity[kMaxSeverity];
    int severityGiven;
    unsigned int inFlight;
    unsigned char kinds[OZUDB_DEVICES];
    OzuFakeHook hook;
    void *hookUser;

    int connected;
    OzuMqttArg bus;
} fake;

static PanelSharedState state;
static pthread_mutex_t mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

static void lock(void) {
    pthread_mutex_lock(&mutex);
}

static void unlock(void) {
    pthread_mutex_unlock(&mutex);
}

static _Noreturn void misuse(const char *what, const char *name) {
    fprintf(stderr, "ozu_fake_platform: %s '%s'\n", what, name == NULL ? "null" : name);
    abort();
}

static enum Function function_of(const char *name) {
    for (int i = 0; name != NULL && i < FUNCTIONS; ++i) {
        if (strcmp(kNames[i], name) == 0) {
            return (enum Function)i;
        }
    }
    misuse("the platform has no function", name);
}

/* --- Memory of the record --- */

static void *take(size_t size) {
    size = (size + 15) & ~(size_t)15;
    struct Chunk *chunk = fake.chunks;
    if (chunk == NULL || chunk->size - chunk->used < size) {
        const size_t head = (sizeof(struct Chunk) + 15) & ~(size_t)15;
        const size_t wanted = head + size > kChunk ? head + size : kChunk;
        void *memory = mmap(NULL, wanted, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            misuse("no memory for the record of", "this test");
        }
        chunk = memory;
        *chunk = (struct Chunk){fake.chunks, wanted, head};
        fake.chunks = chunk;
    }
    void *piece = (char *)chunk + chunk->used;
    chunk->used += size;
    return piece;
}

static const void *copy_of(const void *bytes, size_t size) {
    return bytes == NULL ? NULL : memcpy(take(size == 0 ? 1 : size), bytes, size);
}

static const char *text_of(const char *text) {
    return text == NULL ? "" : copy_of(text, strlen(text) + 1);
}

static void free_record(void) {
    while (fake.chunks != NULL) {
        struct Chunk *next = fake.chunks->next;
        munmap(fake.chunks, fake.chunks->size);
        fake.chunks = next;
    }
}

void ozu_fake_reset(void) {
    lock();
    free_record();
    memset(&fake, 0, sizeof fake);
    memset(&state, 0, sizeof state);
    if (ozu_fake_clock_stop != NULL) {
        ozu_fake_clock_stop();
    }
    unlock();
}

/* --- One call --- */

static int planned_result(enum Function function) {
    for (int i = 0; i < kMaxFailures; ++i) {
        struct Failure *failure = &fake.failures[i];
        if (failure->armed && failure->function == function && failure->call == fake.calls[function]) {
            failure->armed = 0;
            return failure->result;
        }
    }
    return fake.results[function];
}

static void keep(const OzuFakeEntry *entry) {
    struct Entry *kept = take(sizeof *kept);
    *kept = (struct Entry){NULL, *entry};
    kept->entry.arguments = text_of(entry->arguments);
    kept->entry.text = text_of(entry->text);
    kept->entry.format = text_of(entry->format);
    kept->entry.sourceFile = text_of(entry->sourceFile);
    kept->entry.functionName = text_of(entry->functionName);
    kept->entry.topic = text_of(entry->topic);
    kept->entry.senderLabel = text_of(entry->senderLabel);
    kept->entry.payload = copy_of(entry->payload, entry->payloadLength);
    *(fake.first == NULL ? &fake.first : &fake.last->next) = kept;
    fake.last = kept;
    ++fake.count;
}

/* Counts the call, finds its result, shows it to the hook, records it. */
static int finish(enum Function function, OzuFakeEntry *entry) {
    lock();
    ++fake.calls[function];
    entry->function = kNames[function];
    entry->result = planned_result(function);
    const char **const texts[] = {&entry->arguments,    &entry->text,  &entry->format,     &entry->sourceFile,
                                  &entry->functionName, &entry->topic, &entry->senderLabel};
    for (size_t i = 0; i < sizeof texts / sizeof *texts; ++i) {
        if (*texts[i] == NULL) {
            *texts[i] = "";
        }
    }
    if (fake.hook != NULL) {
        fake.hook(entry, fake.hookUser);
    }
    if (!fake.recordNothing) {
        keep(entry);
    }
    unlock();
    return entry->result;
}

__attribute__((format(printf, 2, 3))) static int call(enum Function function, const char *format, ...) {
    char arguments[kMaxLine];
    va_list list;
    va_start(list, format);
    vsnprintf(arguments, sizeof arguments, format, list);
    va_end(list);
    OzuFakeEntry entry = {.arguments = arguments};
    return finish(function, &entry);
}

/* A text as it is written in C, or null. One buffer per argument. */
typedef struct Quoted {
    char text[kMaxLine / 4];
} Quoted;

static const char *quoted(Quoted *room, const char *text) {
    if (text == NULL) {
        return "null";
    }
    snprintf(room->text, sizeof room->text, "\"%s\"", text);
    return room->text;
}

/* --- ozudb.h --- */

PanelSharedState *ozudb_getSharedMemory(int reserved) {
    call(GET_SHARED_MEMORY, "%d", reserved);
    return fake.otherState ? fake.state : &state;
}

int ozudb_getSeverityNameByProcName(char *out, int outSize, const char *processName) {
    Quoted name;
    const int result = call(GET_SEVERITY, "%d, %s", outSize, quoted(&name, processName));
    const char *severity = fake.severityGiven ? fake.severity : "INFO";
    if (outSize > 0) {
        memcpy(out, severity, strnlen(severity, (size_t)outSize));
    }
    return result;
}

int ozudb_addProc2Log(const char *processName, const char *severityName, pid_t pid) {
    Quoted process;
    Quoted severity;
    return call(ADD_PROCESS, "%s, %s, %d", quoted(&process, processName), quoted(&severity, severityName),
                (int)pid);
}

int ozudb_updatePanelRebootReason(int reason) {
    return call(REBOOT_REASON, "%d", reason);
}

int ozudb_isInFlightData(unsigned char *inFlight) {
    const int result = call(IN_FLIGHT, "%s", "");
    lock();
    *inFlight = fake.inFlight > 0 ? UINT8_MAX : 0;
    fake.inFlight -= fake.inFlight > 0;
    unlock();
    return result;
}

int ozudb_ModifyModemStatistics(uint16_t c1, uint16_t c2, uint16_t c3, uint16_t c4, uint16_t c5, uint16_t c6,
                                uint16_t c7, uint16_t c8, int modemIndex) {
    return call(MODEM_STATISTICS, "%d, %d, %d, %d, %d, %d, %d, %d, %d", c1, c2, c3, c4, c5, c6, c7, c8,
                modemIndex);
}

int ozudb_ModifyBypassExpiry(int zoneIndex, int bypassed, int expiry) {
    return call(BYPASS_EXPIRY, "%d, %d, %d", zoneIndex, bypassed, expiry);
}

static int is_kind(enum Function function, int deviceIndex, OzuFakeDeviceKind kind) {
    const int result = call(function, "%d", deviceIndex);
    if (result != 0 || deviceIndex < 0 || deviceIndex >= OZUDB_DEVICES) {
        return result;
    }
    return fake.kinds[deviceIndex] == kind;
}

int ozudb_isTagReader(int deviceIndex) {
    return is_kind(IS_TAG_READER, deviceIndex, OZU_FAKE_TAG_READER);
}

int ozudb_isRfInput(int deviceIndex) {
    return is_kind(IS_RF_INPUT, deviceIndex, OZU_FAKE_RF_INPUT);
}

int ozudb_isRfDetector(int deviceIndex) {
    return is_kind(IS_RF_DETECTOR, deviceIndex, OZU_FAKE_RF_DETECTOR);
}

/* --- ozulog.h --- */

int ozulog_init(const char *processName) {
    Quoted name;
    return call(LOG_INIT, "%s", quoted(&name, processName));
}

__attribute__((format(printf, 2, 0))) static int log_line(OzuFakeEntry *entry, const char *format,
                                                          va_list list) {
    static const enum Function kFunctions[] = {FUNCTIONS, LOG_EXTENDED, LOG_SHORT, LOG_REMOTE};
    char text[kMaxLine];
    va_list again;
    va_copy(again, list);
    const int length = vsnprintf(text, sizeof text, format, list);
    entry->text = text;
    if (length >= kMaxLine && !fake.recordNothing) {
        lock();
        char *whole = take((size_t)length + 1);
        unlock();
        vsnprintf(whole, (size_t)length + 1, format, again);
        entry->text = whole;
    }
    va_end(again);
    entry->format = format;
    return finish(kFunctions[entry->logKind], entry);
}

int ozulog_printf(int level, const char *format, ...) {
    OzuFakeEntry entry = {.logKind = OZU_FAKE_LOG_SHORT, .level = level};
    va_list list;
    va_start(list, format);
    const int result = log_line(&entry, format, list);
    va_end(list);
    return result;
}

int ozulog_printf_extend(int level, const char *format, const char *sourceFile, const char *functionName,
                         int line, ...) {
    OzuFakeEntry entry = {.logKind = OZU_FAKE_LOG,
                          .level = level,
                          .sourceFile = sourceFile,
                          .functionName = functionName,
                          .line = line};
    va_list list;
    va_start(list, line);
    const int result = log_line(&entry, format, list);
    va_end(list);
    return result;
}

int ozulog_printf_mqtt_transmission(int level, const char *format, ...) {
    OzuFakeEntry entry = {.logKind = OZU_FAKE_LOG_REMOTE, .level = level};
    va_list list;
    va_start(list, format);
    const int result = log_line(&entry, format, list);
    va_end(list);
    return result;
}

/* --- mqttc.h --- */

int mqttc_connect(const char *host, int port, const char *clientName, void *mqttArg) {
    Quoted address;
    Quoted client;
    char argument[24] = "null";
    if (mqttArg != NULL) {
        snprintf(argument, sizeof argument, "%p", mqttArg);
    }
    const int result =
        call(CONNECT, "%s, %d, %s, %s", quoted(&address, host), port, quoted(&client, clientName), argument);
    lock();
    if (result == 0) {
        fake.connected = 1;
        fake.bus = (OzuMqttArg){NULL, NULL};
        if (mqttArg != NULL && !fake.recordNothing) {
            memcpy(&fake.bus, mqttArg, sizeof fake.bus);
        }
    }
    unlock();
    return result;
}

void mqttc_disconnect(void) {
    call(DISCONNECT, "%s", "");
    lock();
    fake.connected = 0;
    unlock();
}

int ozumqttc_topicSubscribe(const char *topic) {
    Quoted text;
    char arguments[kMaxLine];
    snprintf(arguments, sizeof arguments, "%s", quoted(&text, topic));
    OzuFakeEntry entry = {.arguments = arguments, .topic = topic};
    return finish(SUBSCRIBE, &entry);
}

int ozumqttc_messagePublish(const char *topic, unsigned int payloadLength, const char *senderLabel,
                            int messageClass, int command, const void *payload) {
    Quoted address;
    Quoted label;
    char arguments[kMaxLine];
    snprintf(arguments, sizeof arguments, "%s, %u, %s, %d, %d, %s", quoted(&address, topic), payloadLength,
             quoted(&label, senderLabel), messageClass, command, payload == NULL ? "null" : "payload");
    OzuFakeEntry entry = {.arguments = arguments,
                          .topic = topic,
                          .senderLabel = senderLabel,
                          .messageClass = messageClass,
                          .command = command,
                          .payloadLength = payloadLength,
                          .payload = payload};
    return finish(PUBLISH, &entry);
}

/* --- system_event_log.h, messenger.h, product_info.h --- */

int LOG_system_event(int category, const char *text) {
    Quoted event;
    return call(SYSTEM_EVENT, "%d, %s", category, quoted(&event, text));
}

int limited_log_system_event(int category, int subtype, const char *text) {
    Quoted event;
    return call(LIMITED_SYSTEM_EVENT, "%d, %d, %s", category, subtype, quoted(&event, text));
}

int MESSENGER_SendTBBEvent(int deviceIndex, int deviceType, int eventClass, int eventCode, int partition,
                           int input, int user) {
    return call(TBB_EVENT, "%d, %d, %d, %d, %d, %d, %d", deviceIndex, deviceType, eventClass, eventCode,
                partition, input, user);
}

int getProductCodename(void) {
    return call(PRODUCT, "%s", "");
}

/* --- What happened --- */

size_t ozu_fake_count(void) {
    return fake.count;
}

const OzuFakeEntry *ozu_fake_entry(size_t index) {
    lock();
    const struct Entry *found = fake.first;
    for (; found != NULL && index > 0; --index) {
        found = found->next;
    }
    unlock();
    return found == NULL ? NULL : &found->entry;
}

size_t ozu_fake_calls(const char *function) {
    return fake.calls[function_of(function)];
}

const OzuFakeEntry *ozu_fake_call(const char *function, size_t index) {
    const char *const name = kNames[function_of(function)];
    const struct Entry *found = NULL;
    lock();
    for (found = fake.first; found != NULL; found = found->next) {
        if (found->entry.function == name && index-- == 0) {
            break;
        }
    }
    unlock();
    return found == NULL ? NULL : &found->entry;
}

size_t ozu_fake_logged(int level, const char *text) {
    size_t count = 0;
    lock();
    for (const struct Entry *entry = fake.first; entry != NULL; entry = entry->next) {
        const OzuFakeEntry *line = &entry->entry;
        count += line->logKind != OZU_FAKE_NO_LOG && (level == 0 || line->level == level) &&
                 strstr(line->text, text) != NULL;
    }
    unlock();
    return count;
}

size_t ozu_fake_published(const char *topic) {
    size_t count = 0;
    lock();
    for (const struct Entry *entry = fake.first; entry != NULL; entry = entry->next) {
        count += entry->entry.function == kNames[PUBLISH] && strcmp(entry->entry.topic, topic) == 0;
    }
    unlock();
    return count;
}

static int is_question(const OzuFakeEntry *call) {
    return call->function == kNames[GET_SHARED_MEMORY] || call->function == kNames[IS_TAG_READER] ||
           call->function == kNames[IS_RF_INPUT] || call->function == kNames[IS_RF_DETECTOR];
}

void ozu_fake_print(FILE *out) {
    lock();
    for (const struct Entry *entry = fake.first; entry != NULL; entry = entry->next) {
        const OzuFakeEntry *call = &entry->entry;
        if (is_question(call)) {
            continue;
        }
        if (call->logKind != OZU_FAKE_NO_LOG) {
            fprintf(out, "log %d %s: %s\n", call->level, call->functionName, call->text);
        } else {
            fprintf(out, "%s(%s) = %d\n", call->function, call->arguments, call->result);
        }
    }
    unlock();
}

/* --- Knobs --- */

PanelSharedState *ozu_fake_state(void) {
    return &state;
}

void ozu_fake_use_state(PanelSharedState *own) {
    lock();
    fake.state = own;
    fake.otherState = 1;
    unlock();
}

void ozu_fake_result(const char *function, int result) {
    fake.results[function_of(function)] = result;
}

void ozu_fake_fail(const char *function, unsigned int nth, int result) {
    const enum Function found = function_of(function);
    lock();
    for (int i = 0; i < kMaxFailures; ++i) {
        if (!fake.failures[i].armed) {
            fake.failures[i] = (struct Failure){found, fake.calls[found] + nth, result, 1};
            unlock();
            return;
        }
    }
    misuse("too many failures are waiting; no place for one of", function);
}

void ozu_fake_severity(const char *name) {
    lock();
    snprintf(fake.severity, sizeof fake.severity, "%s", name);
    fake.severityGiven = 1;
    unlock();
}

void ozu_fake_in_flight(unsigned int calls) {
    fake.inFlight = calls;
}

void ozu_fake_device_kind(int deviceIndex, OzuFakeDeviceKind kind) {
    if (deviceIndex < 0 || deviceIndex >= OZUDB_DEVICES) {
        misuse("ozu_fake_device_kind: index outside 0 to 205 for", "deviceIndex");
    }
    fake.kinds[deviceIndex] = (unsigned char)kind;
}

void ozu_fake_hook(OzuFakeHook hook, void *user) {
    lock();
    fake.hook = hook;
    fake.hookUser = user;
    unlock();
}

void ozu_fake_record(int record) {
    fake.recordNothing = !record;
}

/* --- The message bus --- */

int ozu_fake_connected(void) {
    return fake.connected;
}

/* MQTT's rule: + is one level, # the rest, and neither at the beginning stands for a topic that begins with
 * $. */
static int matches(const char *filter, const char *topic) {
    if ((*filter == '+' || *filter == '#') && *topic == '$') {
        return 0;
    }
    for (;; ++filter, ++topic) {
        if (*filter == '#') {
            return 1;
        }
        if (*filter == '+') {
            topic += strcspn(topic, "/");
            ++filter;
        }
        if (*topic == '\0' && strcmp(filter, "/#") == 0) {
            return 1;
        }
        if (*filter != *topic) {
            return 0;
        }
        if (*filter == '\0') {
            return 1;
        }
    }
}

int ozu_fake_subscribed(const char *topic) {
    int found = 0;
    lock();
    for (const struct Entry *entry = fake.first; entry != NULL && !found; entry = entry->next) {
        const OzuFakeEntry *call = &entry->entry;
        found = call->function == kNames[SUBSCRIBE] && call->result == 0 && matches(call->topic, topic);
    }
    unlock();
    return found;
}

int ozu_fake_deliver(const char *topic, const char *senderLabel, int messageClass, int command,
                     const void *payload, unsigned int payloadLength) {
    if (!fake.connected) {
        return 1;
    }
    if (fake.bus.onMessage == NULL) {
        return 2;
    }
    if (!ozu_fake_subscribed(topic)) {
        return 3;
    }
    const OzuMqttMessage message = {.topic = topic,
                                    .senderLabel = senderLabel == NULL ? "" : senderLabel,
                                    .messageClass = messageClass,
                                    .command = command,
                                    .payloadLength = payloadLength,
                                    .payload = payloadLength == 0 ? NULL : payload};
    fake.bus.onMessage(&message, fake.bus.user);
    return 0;
}
