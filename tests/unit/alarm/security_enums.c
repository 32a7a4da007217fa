/* The shared enumerations as a C process sees them; the C++ test calls these. */
#include <inc_ozu/security_ozu.h>

const char *commandNameFromC(unsigned int command);
const char *partitionNameFromC(unsigned int partition);

const char *commandNameFromC(unsigned int command) {
    return stringFromSec_cmd(command);
}

const char *partitionNameFromC(unsigned int partition) {
    sec_partition value = (sec_partition)partition;
    return stringFromSec_partition(value);
}
