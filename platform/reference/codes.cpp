#include <ozu_platform_tools.h>

namespace ozu::platform {

const char *codeText(int code) {
    switch (code) {
    case 0:
        return "success";
    case kInvalidArgument:
        return "invalid argument";
    case kNoSharedRecord:
        return "the shared record cannot be used";
    case kNotFound:
        return "not found";
    case kBusy:
        return "another process held the database or the record for too long";
    case kReadOnly:
        return "the data folder or the database cannot be written";
    case kDiskFull:
        return "the disk is full";
    case kCorrupt:
        return "the database is damaged";
    case kCannotOpen:
        return "the data folder or one of its files cannot be opened";
    case kInputOutput:
        return "read or write error";
    case kOutOfMemory:
        return "out of memory";
    case kWrongVersion:
        return "the database was written by a newer release";
    case kNothingThere:
        return "no panel process has used this data folder yet";
    case kNotConnected:
        return "not connected to the broker";
    case kBrokerUnreachable:
        return "the broker does not answer";
    case kBrokerRefused:
        return "the broker refused";
    case kQueueFull:
        return "too many messages wait for their acknowledgement";
    case kAlreadyConnected:
        return "this process is connected already";
    case kTakenOver:
        return "another process connected under the same name";
    default:
        return "internal failure";
    }
}

} // namespace ozu::platform
