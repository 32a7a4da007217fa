/* Results and widths as a C99 program sees them. */
#include <utils_ozu.h>

#include "check.h"

#include <limits.h>

int main(void) {
    char text[16];
    unsigned char bytes[2];
    unsigned char count = 9;
    PanelArmType arm = PANEL_ARM_PERIMETER_ANNEX;

    CHECK_INT(ozuutils_strlcpy(text, "panel", sizeof(text)), 5);
    CHECK_TEXT(text, "panel");
    CHECK_TEXT(ozuutils_strncpy2Upper(text, text, 3), "PAN");
    CHECK_INT(ozuutils_Ascii2Digit('Z'), -1);
    CHECK_INT(ozuutils_Digit2Ascii(16), 0);
    CHECK_INT(safe_atoi("99999999999"), INT_MAX);
    CHECK_INT(safe_atoll("-99999999999"), -99999999999LL);
    CHECK_INT(ozuutils_StringToNum("FFFFFFFF", 8, 16), -1);
    CHECK(ozuutils_StringToLongNum("FFFFFFFFFFFFFFFF", 16, 16) == ULLONG_MAX);
    CHECK_INT(ozuutils_hexstr2numRetLen("1fZ", 10, &count), 31);
    CHECK_INT(count, 2);
    CHECK_INT(ozuutils_hexStringToBinary("0A0B", bytes, 2, 1), 2);
    CHECK_INT(bytes[0], 0x0B);
    CHECK_INT(ozuutils_bcd2num(0x59), 59);
    CHECK(ozuutils_searchInBuf(bytes, bytes + 1, 2, 1) == bytes + 1);
    CHECK_INT(arm, 15);
    CHECK_INT(SAFETY_SIREN_PERIOD, 180);
    CHECK_INT(MAX_DEVICE_INDEX, 206);
    return verdict();
}
