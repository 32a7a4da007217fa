#include "shared_segment.h"

#include "data_folder.h"
#include "errors.h"
#include "own_file.h"
#include "settings.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace ozu::platform {

namespace {

constexpr const char *kSharedFolder = "/dev/shm/";
constexpr const char *kNamePrefix = "ozu-v";
constexpr int kLockSeconds = 10;
constexpr std::uint16_t kDefaultEntryDelay = 30;
constexpr mode_t kSegmentMode = 0660;

std::mutex attachMutex;
std::atomic<Segment *> attached{nullptr};

std::string advice(const std::string &path) {
    return "stop all panel processes, remove " + path + " and start processes of one release";
}

[[noreturn]] void refuse(const std::string &path, const std::string &what) {
    throw Error(kNoSharedRecord, "shared segment " + path + " " + what + ": " + advice(path));
}

std::vector<std::string> namesOfSegments() {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(kSharedFolder), closedir);
    while (const dirent *entry = folder ? readdir(folder.get()) : nullptr) {
        if (std::string_view(entry->d_name).starts_with(kNamePrefix)) {
            names.emplace_back(entry->d_name);
        }
    }
    return names;
}

uid_t ownerOf(const std::string &folder) {
    struct stat home {};
    if (stat(folder.c_str(), &home) != 0) {
        throw Error(codeOfErrno(errno), "data folder " + folder + ": " + std::strerror(errno));
    }
    return home.st_uid;
}

// Anybody may put anything into the folder of shared memory. What counts there is a regular file of a user
// whose files the platform uses, everything else is as good as absent.
Descriptor openTrusted(const std::string &path, uid_t folderOwner, struct stat &found) {
    if (lstat(path.c_str(), &found) != 0 || !S_ISREG(found.st_mode)) {
        return {};
    }
    Descriptor file = openFile(path.c_str(), O_RDONLY);
    const bool counts = file && fstat(file.get(), &found) == 0 && S_ISREG(found.st_mode) &&
                        isTrusted(found.st_uid, folderOwner);
    return counts ? std::move(file) : Descriptor();
}

bool isOtherUsers(const std::string &path, uid_t folderOwner) noexcept {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 && !isTrusted(found.st_uid, folderOwner);
}

// Another layout's segment of the same folder means that processes of two releases would not see each other.
void refuseOtherLayouts(const std::string &identity, uid_t folderOwner) {
    const std::string own = segmentPath(identity);
    const std::string tail = "-" + identity;
    struct stat ours {};
    const bool exists = lstat(own.c_str(), &ours) == 0;
    for (const std::string &name : namesOfSegments()) {
        const std::string path = kSharedFolder + name;
        if (!name.ends_with(tail) || path == own) {
            continue;
        }
        struct stat found {};
        const Descriptor file = openTrusted(path, folderOwner, found);
        std::array<char, kSegmentMagic.size()> magic{};
        const bool isSegment =
            file && pread(file.get(), magic.data(), magic.size(), 0) == static_cast<ssize_t>(magic.size()) &&
            magic == kSegmentMagic;
        const bool isOwn = exists && found.st_dev == ours.st_dev && found.st_ino == ours.st_ino;
        if (isSegment && !isOwn) {
            const std::size_t from = std::strlen(kNamePrefix);
            refuse(path, "has layout version " + name.substr(from, name.size() - tail.size() - from) +
                             ", this process needs version " + std::to_string(kLayoutVersion));
        }
    }
}

// The folder that a segment was made for; the empty mark for none, and for what is no segment of ours.
FolderMark folderOfSegment(const std::string &path, uid_t folderOwner) {
    struct stat found {};
    FolderMark mark;
    const Descriptor file = openTrusted(path, folderOwner, found);
    const bool known = file && found.st_size == static_cast<off_t>(sizeof(Segment)) &&
                       pread(file.get(), &mark, sizeof(mark), offsetof(SegmentHeader, folder)) ==
                           static_cast<ssize_t>(sizeof(mark));
    return known ? mark : FolderMark{};
}

bool isAnotherFolders(const std::string &identity, const std::string &folder) {
    const FolderMark mark = folderOfSegment(segmentPath(identity), ownerOf(folder));
    return mark != FolderMark{} && mark != markOf(folder);
}

// What a process left behind that was killed while it made the segment.
void removeDrafts(const std::string &path, uid_t folderOwner) {
    for (const std::string &name : namesOfSegments()) {
        const std::string draft = kSharedFolder + name;
        if (draft.starts_with(path + ".") && !isOtherUsers(draft, folderOwner)) {
            unlink(draft.c_str());
        }
    }
}

// What of a segment can be told before it is mapped.
void checkFile(int fd, const std::string &path, uid_t folderOwner) {
    struct stat found {};
    if (fstat(fd, &found) != 0) {
        throw Error(codeOfErrno(errno), path + ": " + std::strerror(errno));
    }
    if (!S_ISREG(found.st_mode)) {
        refuse(path, "is not a regular file");
    }
    if (!isTrusted(found.st_uid, folderOwner)) {
        refuse(path, "belongs to user " + std::to_string(found.st_uid));
    }
    constexpr std::size_t kFixedPart = offsetof(SegmentHeader, stateSize);
    SegmentHeader header{};
    if (pread(fd, &header, kFixedPart, 0) != static_cast<ssize_t>(kFixedPart)) {
        refuse(path, "is too short");
    }
    if (header.magic != kSegmentMagic) {
        refuse(path, "does not begin with the mark of a shared record");
    }
    if (header.layoutVersion != kLayoutVersion) {
        refuse(path, "has layout version " + std::to_string(header.layoutVersion) +
                         ", this process needs version " + std::to_string(kLayoutVersion));
    }
    if (header.segmentSize != sizeof(Segment) || found.st_size != static_cast<off_t>(sizeof(Segment))) {
        refuse(path, "has " + std::to_string(found.st_size) + " bytes and says " +
                         std::to_string(header.segmentSize) + ", this process needs " +
                         std::to_string(sizeof(Segment)));
    }
}

void checkHeader(const SegmentHeader &header, const std::string &path) {
    if (header.stateSize != sizeof(PanelSharedState) || header.stateOffset != offsetof(Segment, state)) {
        refuse(path, "holds a record of " + std::to_string(header.stateSize) + " bytes, this process needs " +
                         std::to_string(sizeof(PanelSharedState)));
    }
    if (header.pointerBits != 8 * sizeof(void *)) {
        refuse(path, "was made by a " + std::to_string(header.pointerBits) + "-bit process, this one has " +
                         std::to_string(8 * sizeof(void *)) + " bits");
    }
}

Segment *mapSegment(int fd, const std::string &path, int protection) {
    void *address = mmap(nullptr, sizeof(Segment), protection, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
        throw Error(codeOfErrno(errno), path + ": " + std::strerror(errno));
    }
    return static_cast<Segment *>(address);
}

Segment *mapChecked(int fd, const std::string &path, int protection) {
    Segment *segment = mapSegment(fd, path, protection);
    try {
        checkHeader(segment->header, path);
    } catch (...) {
        munmap(segment, sizeof(Segment));
        throw;
    }
    return segment;
}

void initialise(SharedMutex &shared) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    const int error = pthread_mutex_init(&shared.mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (error != 0) {
        throw Error(kInternal, std::string("mutex of the shared segment: ") + std::strerror(error));
    }
}

// A panel that nobody has told anything yet.
void fillFresh(PanelSharedState &state) {
    for (auto &partition : state.partitions) {
        partition.partitionState = PANEL_PARTITION_DISARMED;
    }
    for (auto &zone : state.zones) {
        zone.firstInputEnabled = 1;
        zone.bypass[0].bypassExpiry = OZUDB_BYPASS_FOREVER;
        zone.bypass[1].bypassExpiry = OZUDB_BYPASS_FOREVER;
    }
    for (auto &input : state.rfInputs) {
        input.enabled = 1;
    }
    state.au1tEntryDelayFull = kDefaultEntryDelay;
    state.au1tEntryDelayShort = kDefaultEntryDelay;
}

void fill(Segment &segment, const FolderMark &folder) {
    auto &header = segment.header;
    header.magic = kSegmentMagic;
    header.layoutVersion = kLayoutVersion;
    header.segmentSize = sizeof(Segment);
    header.stateSize = sizeof(PanelSharedState);
    header.stateOffset = offsetof(Segment, state);
    header.pointerBits = 8 * sizeof(void *);
    header.folder = folder;
    initialise(header.writers);
    for (auto &slot : header.inFlight) {
        initialise(slot.owner);
    }
    fillFresh(segment.state);
    beginBoot();
    const LastingState lasting = readLastingState();
    applyLastingState(lasting, segment.state);
    header.hasBootReason = lasting.rebootReason ? 1 : 0;
    header.bootReason = lasting.rebootReason.value_or(0);
    header.ready.store(1, std::memory_order_release);
}

// Makes the segment under a name of its own and moves it into place, so that no process sees a half-made one.
Segment *create(const std::string &path, const std::string &folder) {
    const std::string draft = path + "." + newIdentity(); // a name that nobody can have taken
    const Descriptor file = openFile(draft.c_str(), O_RDWR | O_CREAT | O_EXCL, kSegmentMode);
    if (!file) {
        throw Error(codeOfErrno(errno), draft + ": " + std::strerror(errno));
    }
    struct stat home {};
    // Room is reserved now: a full /dev/shm must be an error here, not a SIGBUS later.
    int error = posix_fallocate(file.get(), 0, sizeof(Segment));
    if (error == 0 && (fchmod(file.get(), kSegmentMode) != 0 || stat(folder.c_str(), &home) != 0 ||
                       (geteuid() == 0 && fchown(file.get(), home.st_uid, home.st_gid) != 0))) {
        error = errno;
    }
    if (error != 0) {
        unlink(draft.c_str());
        throw Error(codeOfErrno(error), draft + ": " + std::strerror(error));
    }
    Segment *segment = mapSegment(file.get(), draft, PROT_READ | PROT_WRITE);
    try {
        fill(*segment, markOf(folder));
        if (rename(draft.c_str(), path.c_str()) != 0) {
            throw Error(codeOfErrno(errno), path + ": " + std::strerror(errno));
        }
    } catch (...) {
        munmap(segment, sizeof(Segment));
        unlink(draft.c_str());
        throw;
    }
    return segment;
}

// The identity whose segment the folder's processes use, however the folder's file was changed meanwhile. A
// new one when it is that of another folder, as in a copy, or when another user has taken the name that a
// segment of ours would have. No segment of ours can have been there before: nobody else could have removed
// it.
void settleIdentity(FolderLock &lock, const std::string &folder, uid_t folderOwner) {
    const std::string inUse = identityInUse(folder, lock.identity());
    if (!inUse.empty() && inUse != lock.identity()) {
        note(OZULOG_CRITICAL, "ozudb_getSharedMemory",
             "the identity of data folder " + folder +
                 " was changed; it is again the one that the running panel uses");
        lock.adoptIdentity(inUse);
    }
    if (isAnotherFolders(lock.identity(), folder)) {
        note(OZULOG_CRITICAL, "ozudb_getSharedMemory",
             "the identity of data folder " + folder +
                 " is the one that another folder's panel uses; this folder has a new one");
        lock.setIdentity(newIdentity());
    }
    const std::string taken = segmentPath(lock.identity());
    if (isOtherUsers(taken, folderOwner)) {
        note(OZULOG_WARNING, "ozudb_getSharedMemory",
             taken + " belongs to another user; the shared segment gets another name");
        lock.setIdentity(newIdentity());
    }
}

void closeToOtherUsers(int fd, const std::string &path) {
    struct stat found {};
    if (fstat(fd, &found) == 0 && (found.st_mode & S_IRWXO) != 0 && fchmod(fd, kSegmentMode) == 0) {
        note(OZULOG_WARNING, "ozudb_getSharedMemory", path + " was open to all users; it is no longer");
    }
}

Segment *attach() {
    const std::string folder = folderPath();
    // The database's lock first, as everywhere; a segment that exists is useful even without the database.
    const SettingsLock settings;
    FolderLock lock(folder);
    const uid_t folderOwner = ownerOf(folder);
    settleIdentity(lock, folder, folderOwner);
    refuseOtherLayouts(lock.identity(), folderOwner);
    const std::string path = segmentPath(lock.identity());
    const Descriptor file = openFile(path.c_str(), O_RDWR);
    if (!file) {
        if (errno == ENOENT) {
            requireMaking("shared segment " + path);
            removeDrafts(path, folderOwner);
            return create(path, folder);
        }
        throw Error(codeOfErrno(errno), path + ": " + std::strerror(errno));
    }
    checkFile(file.get(), path, folderOwner);
    closeToOtherUsers(file.get(), path);
    Segment *segment = mapChecked(file.get(), path, PROT_READ | PROT_WRITE);
    if (segment->header.folder == FolderMark{}) {
        segment->header.folder = markOf(folder);
    }
    return segment;
}

int lockInTime(pthread_mutex_t &mutex) {
    timespec until{};
#ifdef __SANITIZE_THREAD__ // it takes a lock by the other clock for none
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += kLockSeconds;
    return pthread_mutex_timedlock(&mutex, &until);
#else
    // By the clock that nobody sets: the panel's time of day may jump by years.
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += kLockSeconds;
    return pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &until);
#endif
}

void undoHalfChange(Segment &segment) {
    if (segment.header.shadowValid.load(std::memory_order_acquire) != 0) {
        std::memcpy(&segment.state, &segment.header.shadow, sizeof(segment.state));
        segment.header.shadowValid.store(0, std::memory_order_release);
    }
    // The dead owner may have changed the database but not the record any more.
    try {
        applyLastingState(readLastingState(), segment.state);
    } catch (const std::exception &error) {
        note(OZULOG_ERROR, __func__, error.what());
    }
}

// A reason is told once, however often the record is asked for, until there is another one.
void noteRefusal(const char *reason) noexcept {
    static std::mutex mutex;
    static std::array<char, 1024> told{};
    // Never waited for: a fork may have caught it, and another thread tells the reason already.
    const std::unique_lock guard(mutex, std::try_to_lock);
    if (guard && std::strncmp(told.data(), reason, told.size() - 1) != 0) {
        std::strncpy(told.data(), reason, told.size() - 1);
        note(OZULOG_CRITICAL, "ozudb_getSharedMemory", reason);
    }
}

} // namespace

void lockSegmentForFork() noexcept {
    attachMutex.lock();
}

void unlockSegmentAfterFork() noexcept {
    attachMutex.unlock();
}

std::string identityInUse(const std::string &folder, const std::string &preferred) {
    const FolderMark mark = markOf(folder);
    const uid_t folderOwner = ownerOf(folder);
    const std::string prefix = segmentPath({}).substr(std::strlen(kSharedFolder));
    std::string inUse;
    for (const std::string &name : namesOfSegments()) {
        if (name.size() != prefix.size() + kIdentityDigits || !name.starts_with(prefix)) {
            continue;
        }
        const std::string identity = name.substr(prefix.size());
        if (folderOfSegment(kSharedFolder + name, folderOwner) == mark &&
            (inUse.empty() || identity == preferred)) {
            inUse = identity;
        }
    }
    return inUse;
}

std::string identityForReading(const std::string &folder) {
    std::string own = existingIdentity(folder);
    struct stat found {};
    if (stat(folder.c_str(), &found) != 0) {
        return own;
    }
    std::string inUse = identityInUse(folder, own);
    if (inUse.empty() && !own.empty() && !isAnotherFolders(own, folder)) {
        return own;
    }
    return inUse;
}

std::string segmentPath(const std::string &identity, std::uint32_t layoutVersion) {
    return kSharedFolder + (kNamePrefix + std::to_string(layoutVersion)) + "-" + identity;
}

Segment &sharedSegment() {
    Segment *segment = attached.load(std::memory_order_acquire);
    if (segment == nullptr) {
        const std::lock_guard guard(attachMutex);
        segment = attached.load(std::memory_order_acquire);
        if (segment == nullptr) {
            segment = attach();
            attached.store(segment, std::memory_order_release);
        }
    }
    return *segment;
}

Segment *trySharedSegment() noexcept {
    if (Segment *segment = attached.load(std::memory_order_acquire)) {
        return segment;
    }
    try {
        return &sharedSegment();
    } catch (const Error &error) {
        if (error.code() != kNothingThere) {
            noteRefusal(error.what());
        }
        return nullptr;
    } catch (const std::exception &error) {
        noteRefusal(error.what());
        return nullptr;
    }
}

Segment *mappedSegment() noexcept {
    return attached.load(std::memory_order_acquire);
}

void forgetSegment() noexcept {
    attached.store(nullptr, std::memory_order_release);
}

WriterLock::WriterLock(Segment &segment) : segment_(segment) {
    pthread_mutex_t &mutex = segment.header.writers.mutex;
    const int error = lockInTime(mutex);
    if (error == EOWNERDEAD) {
        undoHalfChange(segment);
        pthread_mutex_consistent(&mutex);
    } else if (error != 0) {
        throw Error(error == ETIMEDOUT ? kBusy : kInternal,
                    std::string("writers' lock of the shared record: ") + std::strerror(error));
    }
}

WriterLock::~WriterLock() {
    pthread_mutex_unlock(&segment_.header.writers.mutex);
}

void changeRecord(Segment &segment, const std::function<void(PanelSharedState &)> &change) {
    auto &header = segment.header;
    std::memcpy(&header.shadow, &segment.state, sizeof(header.shadow));
    header.shadowValid.store(1, std::memory_order_release);
    try {
        change(segment.state);
    } catch (...) {
        std::memcpy(&segment.state, &header.shadow, sizeof(header.shadow));
        header.shadowValid.store(0, std::memory_order_release);
        throw;
    }
    header.shadowValid.store(0, std::memory_order_release);
}

const Segment *mapReadOnly(std::string &why) {
    try {
        const std::string folder = folderPath();
        const std::string identity = identityForReading(folder);
        if (identity.empty()) {
            throw Error(kNoSharedRecord, "no panel process has run with the data folder " + folder);
        }
        const uid_t folderOwner = ownerOf(folder);
        refuseOtherLayouts(identity, folderOwner);
        const std::string path = segmentPath(identity);
        const Descriptor file = openFile(path.c_str(), O_RDONLY);
        if (!file) {
            throw Error(kNoSharedRecord, "shared segment " + path + ": " + std::strerror(errno));
        }
        checkFile(file.get(), path, folderOwner);
        return mapChecked(file.get(), path, PROT_READ);
    } catch (const std::exception &error) {
        why = error.what();
        return nullptr;
    }
}

} // namespace ozu::platform
