// The same from C++.
#include <utils_ozu.h>

#include <ozudb.h>

#include <cstdio>

int main() {
    char text[8] = "";
    std::printf("copied %u\n", static_cast<unsigned>(ozuutils_strlcpy(text, "installed", sizeof text)));
    std::printf("text %s\n", text);
    std::printf("record %u\n", static_cast<unsigned>(sizeof(PanelSharedState)));
    static_assert(noexcept(ozuutils_strlcpy(text, "", 0)));
    return 0;
}
