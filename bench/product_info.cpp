// The lookups of names ask the platform for one thing only, and are counted in a dozen instructions: the
// fake platform, which counts and locks with every call, would be most of what is measured.
#include <product_info.h>

int getProductCodename(void) {
    return 0;
}
