/* Other ways to look the same names up: compiled switches, perfect hashes of gperf. Generated at build time.
 */
#ifndef BENCH_NAMES_PEERS_H
#define BENCH_NAMES_PEERS_H

#ifdef __cplusplus
extern "C" {
#endif

const char *switchDeviceType(unsigned int code);
const char *switchTarn2MessageType(unsigned int code);
const char *switchTarnPlusOpcode(unsigned int code);
const char *switchTarn1Opcode(unsigned int code);
const char *switchTarn1OldMessageType(unsigned int code);
const char *switchTarn1SubOpcode(unsigned int group, unsigned int code);
const char *switchTarnPlusSubOpcode(unsigned int group, unsigned int code);

const char *gperfTarn1SubOpcodeName(unsigned int group, unsigned int code);
const char *gperfTarnPlusSubOpcodeName(unsigned int group, unsigned int code);
int gperfDeviceTypeCode(const char *name);

#ifdef __cplusplus
}
#endif

#endif /* BENCH_NAMES_PEERS_H */
