/*
 * Product information of the panel.
 */
#ifndef PRODUCT_INFO_H
#define PRODUCT_INFO_H

#ifdef __cplusplus
extern "C" {
#endif

#pragma GCC visibility push(default)

/** Product variants that the panel's processes tell apart; the code is permanent. */
typedef enum PanelProduct {
    PANEL_PRODUCT_LUM_PLUS = 1 /**< Lum+ */
} PanelProduct;

/** Returns the code of the product variant this process runs on: a PanelProduct, or any other number. */
int getProductCodename(void);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif /* PRODUCT_INFO_H */
