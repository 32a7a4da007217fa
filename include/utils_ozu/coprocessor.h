/*
 * Co-processor and radio requests.
 *
 * A process never touches the NXP co-processor or the CC1352 radio itself. It publishes requests on the
 * message bus. A result of 0 says that the request was published, not that it was carried out. Where there is
 * an answer, the co-processor process writes it into the shared state some time later. Each call builds its
 * own record. It blocks, and may run concurrently, as ozumqttc_messagePublish() does. docs/glossary.md
 * explains the words.
 */
#ifndef UTILS_OZU_COPROCESSOR_H
#define UTILS_OZU_COPROCESSOR_H

#include <stdint.h>
#include <utils_ozu/export.h>

OZU_BEGIN_DECLS

/**
 * Publishes a request block for the co-processor to "Process/MDL" (class 0, command 1, empty label): byte 0
 * is 17, byte 1 the command, bytes 2 to 4 are zero, then comes the block.
 *
 * @param data     request block; may be null when length is 0
 * @param length   bytes of data; 2,147,483,642 and more cannot be allocated
 * @param command  command of the request, low byte; the requests below use 4
 * @return 0; 2 when the record cannot be allocated (logs at 30000); otherwise the status of the publish call
 *         (logs at 70000)
 */
OZU_API int ozuutils_SendDataToNXP(const uint8_t *data, unsigned int length,
                                   unsigned int command) OZU_NOEXCEPT;

/**
 * Asks the co-processor for the panel's serial number (request 0), for the shared state.
 * @return as ozuutils_SendDataToNXP()
 */
OZU_API int ozuutils_updateCPserialNumberInShmem(void) OZU_NOEXCEPT;

/**
 * Sets the protocol of the co-processor's UART (request 8).
 * @param protocol  protocol number, low byte
 * @return always 0, whether or not the request was published
 */
OZU_API int ozuutils_updateNxpUartProtocol(unsigned int protocol) OZU_NOEXCEPT;

/**
 * Asks the co-processor for the manufacturing values (request 9), for the shared state.
 * @return as ozuutils_SendDataToNXP()
 */
OZU_API int ozuutils_updateNxpManufactureParamsInShmem(void) OZU_NOEXCEPT;

/**
 * Asks the co-processor for the state of the panel's tamper switch (request 10). The state is
 * neither returned here nor stored in PanelSharedState. The co-processor process decides where it goes.
 * @return as ozuutils_SendDataToNXP(); not the state
 */
OZU_API int ozuutils_GetNxpTamperState(void) OZU_NOEXCEPT;

/**
 * Tells the co-processor the housing version that the shared state holds in cpPlasticVersion (request 13;
 * logs at 40000).
 * @return as ozuutils_SendDataToNXP(); 1 for a version other than 1 to 3 (logs at 80000; nothing is sent); 2
 *         also when the shared state is missing (logs nothing)
 */
OZU_API int ozuutils_setNxpPlasticVersion(void) OZU_NOEXCEPT;

/**
 * Sets an output of the CC1352 radio through "Process/RF_MANAGER" (class 35, command 10). Logs at 30000, a
 * failed publish at 70000 instead.
 *
 * @param sender  label of the calling process
 * @param gpio    GPIO number; its low byte is sent, the number as given is logged
 * @param level   level; its low byte is sent and logged: 0 low, anything else high, so 256 is low
 */
OZU_API void controlCC1352Gpio(const char *sender, unsigned int gpio, unsigned int level) OZU_NOEXCEPT;

OZU_END_DECLS

#endif /* UTILS_OZU_COPROCESSOR_H */
