// SPDX-License-Identifier: Apache-2.0
//
// What a scripted provider of the third generation makes of preconditions and locks.
#pragma once

#include <string>

#include "provider3.h"
#include "text.h"

namespace harness {

inline constexpr DAV_DATETIME kChangeDate = Ticks(1769864400); // 2026-01-31T13:00:00Z

inline std::u16string PathOf(const UNICODE_STRING* path)
{
    std::u16string text(path->Buffer, path->Length / sizeof(WCHAR));
    return text == u"/" ? std::u16string() : text;
}

inline std::u16string ParentOf(const std::u16string& path)
{
    const size_t slash = path.rfind(u'/');
    return slash == std::u16string::npos ? std::u16string() : path.substr(0, slash);
}

inline bool IsIn(const std::u16string& path, const std::u16string& tree)
{
    return path == tree || (path.starts_with(tree) && path[tree.size()] == u'/');
}

inline std::string TextOf(const DAV_TEXT& text)
{
    return {text.Text ? text.Text : "", text.Length};
}

// Judges preconditions and locks of one request.
class Judgement {
  public:
    Judgement(Provider& provider, const DAV_PRECONDITIONS* preconditions,
              IKestDAVFailures3* failures)
        : provider_(provider), preconditions_(preconditions), failures_(failures)
    {
    }

    TALSTATUS Conditions(const std::u16string& path) const
    {
        if (!preconditions_)
            return TAL_STATUS_SUCCESS;
        const Node* node = provider_.Find(path);
        const std::string match = TextOf(preconditions_->Match);
        const std::string noneMatch = TextOf(preconditions_->NoneMatch);
        bool holds = true;
        if (!match.empty())
            holds = node && (match == "*" || match.find(TagOf(*node)) != std::string::npos);
        else if (node && preconditions_->UnmodifiedSince)
            holds = node->modified <= preconditions_->UnmodifiedSince;
        if (node && !noneMatch.empty())
            holds = holds && noneMatch != "*" && noneMatch.find(TagOf(*node)) == std::string::npos;
        return holds && HoldsIf(path) ? TAL_STATUS_SUCCESS
                                      : ProviderFailure(kCodePreconditionFailed);
    }

    // `isMember`: the name comes or goes. `isTree`: everything below is concerned, too.
    TALSTATUS Locks(const std::u16string& path, bool isMember, bool isTree) const
    {
        TALSTATUS result = TAL_STATUS_SUCCESS;
        provider_.EachNode([&](const std::u16string& root, const Node& node) {
            for (const LockRecord& lock : node.locks) {
                const bool covers = root == path || (isTree && IsIn(root, path)) ||
                                    (lock.depth == -1 && IsIn(path, root)) ||
                                    (isMember && root == ParentOf(path));
                if (!covers || HasToken(lock.token))
                    continue;
                result = ProviderFailure(kCodeLocked);
                std::u16string text = root;
                UNICODE_STRING told = Counted(text);
                if (failures_)
                    (void)failures_->OnFailure(&told, result);
                return;
            }
        });
        return result;
    }

    // Whether new content may take the name.
    TALSTATUS NewContent(const std::u16string& path) const
    {
        const Node* node = provider_.Find(path);
        if (node && node->type == Collection)
            return ProviderFailure(kCodeMethodNotAllowed);
        if (!provider_.Find(ParentOf(path)))
            return ProviderFailure(kCodeConflict);
        const TALSTATUS status = Conditions(path);
        return Failed(status) ? status : Locks(path, node == nullptr, false);
    }

  private:
    bool HasToken(const std::string& token) const
    {
        if (!preconditions_)
            return false;
        for (UINT32 i = 0; i < preconditions_->TokenCount; ++i)
            if (TextOf(preconditions_->Tokens[i]) == token)
                return true;
        return false;
    }
    bool HoldsIf(const std::u16string& path) const
    {
        bool any = preconditions_->IfCount == 0;
        for (UINT32 i = 0; i < preconditions_->IfCount; ++i) {
            const DAV_IF_LIST& list = preconditions_->If[i];
            const std::u16string about = list.Path.Length ? Wide(TextOf(list.Path)) : path;
            bool all = true;
            for (UINT32 j = 0; j < list.Count; ++j)
                all = all && HoldsCondition(about, list.Conditions[j]);
            any = any || all;
        }
        return any;
    }
    bool HoldsCondition(const std::u16string& path, const DAV_IF_CONDITION& condition) const
    {
        const std::string value = TextOf(condition.Value);
        const Node* node = provider_.Find(path);
        bool holds = false;
        if (condition.Kind == kIfTag)
            holds = node && TagOf(*node) == value;
        else if (condition.Kind == kIfToken)
            provider_.EachNode([&](const std::u16string& root, const Node& each) {
                for (const LockRecord& lock : each.locks)
                    holds = holds || (lock.token == value &&
                                      (root == path || (lock.depth == -1 && IsIn(path, root))));
            });
        return holds != (condition.Negated != FALSE);
    }

    Provider& provider_;
    const DAV_PRECONDITIONS* preconditions_;
    IKestDAVFailures3* failures_;
};

} // namespace harness
