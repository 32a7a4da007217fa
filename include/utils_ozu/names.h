/*
 * Names of device types and radio messages.
 *
 * Every name is constant text in static storage, exactly as in the panel's logs. It is never null and must
 * not be freed. A code without a name gives "UNKNOWN". The lookups log nothing and may run
 * concurrently. They take a few instructions; only getDeviceTypeName() and getDeviceTypeEnum() may ask the
 * platform for the product as well, which takes as long as the platform takes.
 */
#ifndef UTILS_OZU_NAMES_H
#define UTILS_OZU_NAMES_H

#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Names a device type.
 *
 * @param type  device type code, 1 to 254; any other value is accepted
 * @return the name; "UNKNOWN" for a code without one. Code 59 is "WQFW" while getProductCodename() returns 1
 *         and "UMKRL" otherwise; the product is asked on every call with 59, and only then.
 */
OZU_API const char *getDeviceTypeName(int type) OZU_NOEXCEPT;

/**
 * Finds the device type code of a name.
 *
 * Answers as if the names of codes 0 to 254 were compared one after the other: a name with two codes gives
 * the lower one ("UMK" 38, "SY8" 49, "EL7" 55), "UNKNOWN" gives 0, and code 59 is found only by the name it
 * has on the current product. getProductCodename() is called once, and only for a name that codes 0 to 58 do
 * not have.
 *
 * @param name  exact name, case-sensitive; may be null
 * @return the code, 0 to 254; 255 when there is none or name is null
 */
OZU_API int getDeviceTypeEnum(const char *name) OZU_NOEXCEPT;

/**
 * Names a Tarn-2 message type.
 * @param type  message type, 0 to 244; any other value is accepted
 * @return the name, "UNKNOWN" for a type without one
 */
OZU_API const char *getTarn2MessageTypeName(unsigned int type) OZU_NOEXCEPT;

/**
 * Names a Tarn-Plus opcode.
 * @param opcode  opcode, 0 to 32; any other value is accepted
 * @return the name, "UNKNOWN" for an opcode without one
 */
OZU_API const char *getTarnPlusOpcodeName(unsigned int opcode) OZU_NOEXCEPT;

/**
 * Names a Tarn-Plus sub-opcode.
 * @param opcode     opcode it belongs to; any value is accepted
 * @param subOpcode  sub-opcode; any value is accepted
 * @return the name, "UNKNOWN" for a pair without one
 */
OZU_API const char *getTarnPlusSubOpcodeName(int opcode, int subOpcode) OZU_NOEXCEPT;

/**
 * Names a Tarn-1 opcode.
 * @param opcode  opcode, 0 to 254; any other value is accepted
 * @return the name, "UNKNOWN" for an opcode without one
 */
OZU_API const char *getTarn1OpcodeName(unsigned int opcode) OZU_NOEXCEPT;

/**
 * Names a Tarn-1 sub-opcode.
 * @param opcode     opcode it belongs to; any value is accepted
 * @param subOpcode  sub-opcode; any value is accepted
 * @return the name, "UNKNOWN" for a pair without one
 */
OZU_API const char *getTarn1SubOpcodeName(int opcode, int subOpcode) OZU_NOEXCEPT;

/**
 * Names an old Tarn-1 message type.
 * @param type  message type, 0 to 250; any other value is accepted
 * @return the name, "UNKNOWN" for a type without one
 */
OZU_API const char *getTarn1OldMessageTypeString(unsigned int type) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_NAMES_H */
