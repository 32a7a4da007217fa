/*
 * Product information of the panel.
 */
#ifndef PRODUCT_INFO_H
#define PRODUCT_INFO_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Returns the code of the product variant this process runs on. */
int getProductCodename(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* PRODUCT_INFO_H */
