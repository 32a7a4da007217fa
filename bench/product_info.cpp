// The measured programs run without a platform; this is all of it that the names need.
#include <product_info.h>

int getProductCodename(void) {
    return 0;
}
