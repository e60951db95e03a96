// SPDX-License-Identifier: Apache-2.0
//
// Reads the command line.
#include "host/commands/arguments.h"

#include <filesystem>

#include "base/ascii.h"
#include "base/utf.h"
#include "host/auth/app_passwords.h"
#include "host/auth/users.h"
#include "host/config/addresses.h"

namespace kestd {

ArgumentReader::ArgumentReader(std::vector<std::string> arguments)
    : arguments_(std::move(arguments))
{
}

bool ArgumentReader::Next(std::string& option)
{
    option.clear();
    while (at_ < arguments_.size() && problem_.empty()) {
        const std::string& argument = arguments_[at_++];
        if (takesOptions_ && argument == "--") {
            takesOptions_ = false;
            continue;
        }
        if (!takesOptions_ || argument.size() < 2 || argument[0] != '-') {
            rest_ = argument;
            return true;
        }
        const size_t equals = argument.find('=');
        hasAttached_ = argument.starts_with("--") && equals != std::string::npos;
        attached_ = hasAttached_ ? argument.substr(equals + 1) : std::string();
        option_ = hasAttached_ ? argument.substr(0, equals) : argument;
        option = option_;
        return true;
    }
    return false;
}

bool ArgumentReader::Value(std::string& value)
{
    if (hasAttached_) {
        value = attached_;
    } else if (at_ < arguments_.size()) {
        value = arguments_[at_++];
    } else {
        Refuse("the option " + option_ + " needs a value");
        return false;
    }
    if (value.empty())
        Refuse("the option " + option_ + " needs a value that is not empty");
    return problem_.empty();
}

bool ArgumentReader::NoValue()
{
    if (hasAttached_)
        Refuse("the option " + option_ + " takes no value");
    return !hasAttached_;
}

void ArgumentReader::Refuse(std::string problem)
{
    if (problem_.empty())
        problem_ = std::move(problem);
}

bool ParseVolume(const std::string& text, VolumeArgument& out)
{
    const size_t equals = text.find('=');
    const size_t slash = text.find('/');
    if (equals != std::string::npos && (slash == std::string::npos || equals < slash)) {
        out = {text.substr(0, equals), text.substr(equals + 1)};
    } else {
        std::string path = text;
        while (path.size() > 1 && path.ends_with('/'))
            path.pop_back();
        out = {path.substr(path.rfind('/') + 1), text};
        if (out.name == "." || out.name == "..") { // named by what it stands for
            std::error_code error;
            out.name = std::filesystem::canonical(path, error).filename().string();
        }
    }
    const bool isPlain = out.name != "." && out.name != ".." &&
                         out.name.find('/') == std::string::npos && base::IsUtf8(out.name) &&
                         !base::HasControlOrTab(out.name);
    return isPlain && !out.name.empty() && !out.directory.empty();
}

namespace {

void TakeUser(ArgumentReader& in, ServeArguments& out)
{
    std::string text;
    if (!in.Value(text))
        return;
    const size_t colon = text.find(':');
    if (colon == std::string::npos || colon + 1 == text.size())
        return in.Refuse("--user expects NAME:PASSWORD");
    const std::string name = text.substr(0, colon);
    if (const std::string wrong = WhatIsWrongWithName(name); !wrong.empty())
        return in.Refuse("--user: " + wrong);
    out.users.emplace_back(name, text.substr(colon + 1));
}

void TakeListen(ArgumentReader& in, ServeArguments& out)
{
    std::string text;
    if (!in.Value(text))
        return;
    ListenAddress address;
    if (!ParseListenAddress(text, address))
        return in.Refuse("--listen expects ADDRESS:PORT with a numeric address ([ADDRESS]:PORT for "
                         "IPv6), not '" +
                         text + "'");
    out.listen.push_back(text);
}

void TakeVolume(ArgumentReader& in, ServeArguments& out)
{
    VolumeArgument volume;
    if (!ParseVolume(in.Rest(), volume))
        return in.Refuse("'" + in.Rest() +
                         "' names no volume: expected DIR or NAME=DIR, NAME without '/'");
    for (const VolumeArgument& other : out.volumes)
        if (other.name == volume.name)
            return in.Refuse("two volumes have the name '" + volume.name +
                             "'; name them with NAME=DIR");
    out.volumes.push_back(std::move(volume));
}

void TakePublicUrl(ArgumentReader& in, ServeArguments& out)
{
    if (!in.Value(out.publicUrl))
        return;
    if (const std::string wrong = WhatIsWrongWithPublicUrl(out.publicUrl); !wrong.empty())
        in.Refuse("--public-url: " + wrong);
}

void TakeServeOption(ArgumentReader& in, const std::string& option, ServeArguments& out)
{
    if (option.empty())
        TakeVolume(in, out);
    else if (option == "--config")
        (void)in.Value(out.config); // a missing value is kept as the problem; so below
    else if (option == "--listen")
        TakeListen(in, out);
    else if (option == "--user")
        TakeUser(in, out);
    else if (option == "--public-url")
        TakePublicUrl(in, out);
    else if (option == "--tls-cert")
        (void)in.Value(out.tlsCertificate);
    else if (option == "--tls-key")
        (void)in.Value(out.tlsKey);
    else if (option == "--dialect")
        (void)in.Value(out.dialect);
    else if (option == "--state-dir")
        (void)in.Value(out.stateDirectory);
    else if (option == "--help" || option == "-h")
        out.wantsHelp = in.NoValue();
    else
        in.Refuse("unknown option " + option);
}

} // namespace

std::string ParseServe(std::vector<std::string> arguments, ServeArguments& out)
{
    ArgumentReader in(std::move(arguments));
    std::string option;
    while (in.Next(option))
        TakeServeOption(in, option, out);
    if (in.Problem().empty() && !out.dialect.empty() && out.dialect != "classic" &&
        out.dialect != "standard")
        in.Refuse("--dialect " + out.dialect + ": expected 'classic' or 'standard'");
    if (in.Problem().empty() && out.tlsCertificate.empty() != out.tlsKey.empty())
        in.Refuse("--tls-cert and --tls-key belong together");
    return in.Problem();
}

namespace {

void TakeUserWord(ArgumentReader& in, UserArguments& out)
{
    if (out.action.empty()) {
        const std::string& word = in.Rest();
        if (word != "add" && word != "remove" && word != "passwd" && word != "list")
            return in.Refuse("unknown command 'user " + word + "'");
        out.action = word;
    } else if (out.name.empty() && out.action != "list") {
        if (const std::string wrong = WhatIsWrongWithName(in.Rest()); !wrong.empty())
            return in.Refuse(wrong);
        out.name = in.Rest();
    } else {
        in.Refuse("unexpected argument '" + in.Rest() + "'");
    }
}

void TakeField(ArgumentReader& in, std::string& field)
{
    if (!in.Value(field))
        return;
    if (const std::string wrong = WhatIsWrongWithField(field); !wrong.empty())
        in.Refuse(wrong);
}

} // namespace

std::string ParseUser(std::vector<std::string> arguments, UserArguments& out)
{
    ArgumentReader in(std::move(arguments));
    std::string option;
    while (in.Next(option)) {
        if (option.empty())
            TakeUserWord(in, out);
        else if (option == "--config")
            (void)in.Value(out.config); // a missing value is kept as the problem; so below
        else if (option == "--state-dir")
            (void)in.Value(out.stateDirectory);
        else if (option == "--users-file")
            (void)in.Value(out.usersFile);
        else if (option == "--dotted-name")
            TakeField(in, out.dottedName);
        else if (option == "--tree")
            TakeField(in, out.tree);
        else if (option == "--mail")
            TakeField(in, out.mail);
        else if (option == "--help" || option == "-h")
            out.wantsHelp = in.NoValue();
        else
            in.Refuse("unknown option " + option);
    }
    if (in.Problem().empty() && !out.wantsHelp) {
        if (out.action.empty())
            in.Refuse("expected user add, remove, passwd or list");
        else if (out.name.empty() && out.action != "list")
            in.Refuse("user " + out.action + " needs a name");
    }
    return in.Problem();
}

namespace {

void TakeAppPasswordWord(ArgumentReader& in, AppPasswordArguments& out)
{
    const std::string& word = in.Rest();
    if (out.action.empty()) {
        if (word != "add" && word != "list" && word != "revoke")
            return in.Refuse("unknown command 'user app-password " + word + "'");
        out.action = word;
    } else if (out.user.empty()) {
        if (const std::string wrong = WhatIsWrongWithName(word); !wrong.empty())
            return in.Refuse(wrong);
        out.user = word;
    } else if (out.name.empty() && out.action != "list") {
        if (const std::string wrong = WhatIsWrongWithAppPasswordName(word); !wrong.empty())
            return in.Refuse(wrong);
        out.name = word;
    } else {
        in.Refuse("unexpected argument '" + word + "'");
    }
}

void TakeDays(ArgumentReader& in, int64_t& days)
{
    constexpr uint64_t kMost = 36'500;
    std::string text;
    uint64_t number = 0;
    if (!in.Value(text))
        return;
    if (!base::ParseDecimal(text, number) || number > kMost)
        return in.Refuse("--days " + text + ": expected a number of days, 0 for no end");
    days = static_cast<int64_t>(number);
}

void TakeAppPasswordOption(ArgumentReader& in, const std::string& option, AppPasswordArguments& out)
{
    const bool isAdd = out.action == "add";
    if (option == "--config") {
        (void)in.Value(out.config);
    } else if (option == "--state-dir") {
        (void)in.Value(out.stateDirectory);
    } else if (option == "--days" && isAdd) {
        TakeDays(in, out.days);
    } else if (option == "--read-only" && isAdd) {
        out.isReadOnly = in.NoValue();
    } else if (option == "--volume" && isAdd) {
        if (in.Value(out.volume))
            if (const std::string wrong = WhatIsWrongWithVolume(out.volume); !wrong.empty())
                in.Refuse("--volume " + out.volume + ": " + wrong);
    } else if (option == "--help" || option == "-h") {
        out.wantsHelp = in.NoValue();
    } else {
        in.Refuse("unknown option " + option);
    }
}

} // namespace

std::string ParseAppPassword(std::vector<std::string> arguments, AppPasswordArguments& out)
{
    ArgumentReader in(std::move(arguments));
    std::string option;
    while (in.Next(option)) {
        if (option.empty())
            TakeAppPasswordWord(in, out);
        else
            TakeAppPasswordOption(in, option, out);
    }
    if (in.Problem().empty() && !out.wantsHelp) {
        if (out.action.empty())
            in.Refuse("expected user app-password add, list or revoke");
        else if (out.action != "list" && out.name.empty())
            in.Refuse("user app-password " + out.action + " needs a user and a name");
    }
    return in.Problem();
}

} // namespace kestd
