// SPDX-License-Identifier: Apache-2.0
//
// Reads and writes the users file.
#include "host/auth/users.h"

#include <vector>

#include "base/ascii.h"
#include "base/utf.h"
#include "host/auth/passwords.h"

namespace kestd {
namespace {

bool IsUserLine(std::string_view line)
{
    const std::string_view trimmed = base::Trimmed(line);
    return !trimmed.empty() && !trimmed.starts_with('#');
}

std::string ParseUser(std::string_view line, User& user)
{
    std::vector<std::string> fields = FieldsOf(line);
    if (fields.size() < 2 || fields.size() > 5)
        return "expected name:hash:dotted name:tree:mail";
    fields.resize(5);
    if (std::string problem = WhatIsWrongWithName(fields[0]); !problem.empty())
        return problem;
    if (!IsUsableHash(fields[1]))
        return "the second field is not a password hash that this system knows";
    for (size_t i = 2; i < fields.size(); ++i)
        if (std::string problem = WhatIsWrongWithField(fields[i]); !problem.empty())
            return problem;
    user = {fields[0], fields[1], fields[2], fields[3], fields[4]};
    return {};
}

std::string ParseUsers(const std::string& path, std::string_view text, UserMap& users)
{
    UserMap read;
    std::string problem =
        ForEachLine(text, [&](size_t number, std::string_view line) -> std::string {
            if (!IsUserLine(line))
                return {};
            User user;
            std::string wrong = ParseUser(line, user);
            if (wrong.empty())
                wrong = AddUser(read, std::move(user));
            return wrong.empty() ? wrong : AtLine(path, number, wrong);
        });
    if (problem.empty())
        users = std::move(read);
    return problem;
}

// The old text with the users' lines replaced, removed and added at the end; all else is kept.
std::string Rewritten(std::string_view text, const UserMap& users)
{
    std::string out;
    UserMap left = users;
    (void)ForEachLine(text, [&](size_t, std::string_view line) -> std::string {
        if (IsUserLine(line)) {
            const auto found = left.find(line.substr(0, line.find(':')));
            if (found == left.end())
                return {};
            out += FormatUser(*found->second) + "\n";
            left.erase(found);
        } else {
            out.append(line).append("\n");
        }
        return {};
    });
    for (const auto& [name, user] : left)
        out += FormatUser(*user) + "\n";
    return out;
}

} // namespace

std::string WhatIsWrongWithField(std::string_view field)
{
    if (field.size() > kLongestUserField)
        return "a field has at most " + std::to_string(kLongestUserField) + " bytes";
    if (!base::IsUtf8(field) || base::HasControlOrTab(field))
        return "a field is UTF-8 text without control characters";
    if (field.find(':') != std::string_view::npos)
        return "a field holds no ':'";
    return {};
}

std::string AddUser(UserMap& users, User user)
{
    const std::string name = user.name;
    const bool isNew = users.emplace(name, std::make_shared<const User>(std::move(user))).second;
    return isNew ? std::string() : "the user " + name + " stands twice";
}

std::string LoadUsers(const std::string& path, UserMap& users)
{
    std::string text;
    if (std::string problem = ReadTextFile(path, kLargestUsersFile, text); !problem.empty())
        return problem;
    return ParseUsers(path, text, users);
}

std::string FormatUser(const User& user)
{
    return user.name + ":" + user.hash + ":" + user.dottedName + ":" + user.tree + ":" + user.mail;
}

UsersFile::UsersFile(std::string path) : file_(std::move(path), kLargestUsersFile)
{
    problem_ = file_.Problem();
    if (problem_.empty())
        problem_ = ParseUsers(file_.Path(), file_.Text(), users_);
}

std::string UsersFile::Write()
{
    return file_.Replace(Rewritten(file_.Text(), users_));
}

} // namespace kestd
