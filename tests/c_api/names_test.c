/* Every exported function is declared for C99 and linked from the library. */
#include <utils_ozu.h>

#include "check.h"

typedef void (*Function)(void);

int main(void) {
    static const struct {
        const char *name;
        Function function;
    } kFunctions[] = {
#define FUNCTION(name) {#name, (Function)name},
#include "exported_functions.inc"
#undef FUNCTION
    };
    size_t i;
    for (i = 0; i < sizeof(kFunctions) / sizeof(kFunctions[0]); ++i) {
        if (kFunctions[i].function == NULL) {
            ++failures;
            fprintf(stderr, "%s has no address\n", kFunctions[i].name);
        }
    }
    CHECK(i > 40);
    check_int(0, 0, "", 0);
    check_text("", "", "", 0);
    return verdict();
}
