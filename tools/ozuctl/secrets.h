// What does not leave the panel with a report.
#pragma once

#include <string>
#include <string_view>

namespace ozuctl {

// What stands where a secret stood.
constexpr const char *kLeftOut = "<left-out>";

// A name that promises a secret: it has key, mask, iv, token, secret, password, passphrase, pin, credential,
// authorization, cookie, imsi, imei, iccid, serial or the like as one of its words ("apiKey", "db.key").
bool isSecretName(std::string_view name);

// The text without its secrets: what follows a secret name and '=' or ':', up to the end of the word or
// quotation; user and password in a URL; and 32 hexadecimal digits or more in a row, as keys are written.
std::string withoutSecrets(std::string_view text);

} // namespace ozuctl
