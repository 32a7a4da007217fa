/*
 * What every public header needs: C linkage, and the mark of an exported name.
 */
#ifndef UTILS_OZU_EXPORT_H
#define UTILS_OZU_EXPORT_H

/** @cond */
#ifdef __cplusplus
#define OZU_BEGIN_DECLS extern "C" {
#define OZU_END_DECLS }
#define OZU_NOEXCEPT noexcept
#else
#define OZU_BEGIN_DECLS
#define OZU_END_DECLS
#define OZU_NOEXCEPT
#endif
/** @endcond */

/** Marks a function or constant that libutils_ozu exports. */
#define OZU_API __attribute__((visibility("default")))

#endif /* UTILS_OZU_EXPORT_H */
