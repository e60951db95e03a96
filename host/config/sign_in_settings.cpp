// SPDX-License-Identifier: Apache-2.0
//
// Reads and checks the tables about signing in.
#include "host/config/sign_in_settings.h"

namespace kestd {

std::vector<KnownNames> SignInSettingNames()
{
    return {{kAuthKey, false, {u"Plain HTTP Passwords"}}};
}

std::string ReadSignInSettings(ITalpl& platform, ServerSettings& server)
{
    RegistryReader in(platform, kAuthKey);
    in.Flag(u"Plain HTTP Passwords", server.takesPlainPasswords);
    return in.Problem();
}

} // namespace kestd
