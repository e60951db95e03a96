// SPDX-License-Identifier: Apache-2.0
//
// XML request bodies with their namespaces (Namespaces in XML 1.0): elements are told as pairs of a
// namespace name and a local name, and an element can be taken out of the body as XML that stands
// for itself. Document types are refused (RFC 4918 section 20.6).
#pragma once

#include <string_view>

#include "support/growing.h"

namespace standard {

inline constexpr std::string_view kDav = "DAV:";

struct XmlName {
    std::string_view space; // empty: in no namespace
    std::string_view local;

    bool IsDav(std::string_view name) const { return space == kDav && local == name; }
};

class XmlReader;

// Hears of the elements of a body. Names are valid during the call. Returning false refuses the
// body as one that is not what it should be.
class XmlHandler {
  public:
    // `depth` is 0 for the document's element.
    virtual bool OnStart(XmlReader& reader, const XmlName& name, unsigned depth) = 0;
    virtual bool OnEnd(XmlReader& reader, const XmlName& name, unsigned depth) = 0;

  protected:
    ~XmlHandler() = default;
};

enum class XmlResult {
    Whole,
    Malformed, // or refused by the handler
    NoMemory,
};

// What an element is taken out as.
enum class Capture {
    Element, // with its tags
    Content, // what is between them
};

// Reads a body. Not to be used twice.
class XmlReader {
  public:
    explicit XmlReader(XmlHandler& handler) : handler_(handler) {}
    XmlReader(const XmlReader&) = delete;
    XmlReader& operator=(const XmlReader&) = delete;

    XmlResult Read(std::string_view body);

    // Called from OnStart: takes the element that has begun out of the body. It is there at its own
    // OnEnd, after which it is gone. Every prefix in scope is declared in it, and the language in
    // effect is said. Elements inside it are not told of.
    void Take(Capture what);
    // Called from OnEnd of a taken element.
    std::string_view Taken() const { return taken_.Text(); }

    // The parser's callbacks.
    void Start(const char* name, const char** attributes);
    void End(const char* name);
    void Characters(std::string_view text);
    void Declare(const char* prefix, const char* space);
    void Refuse() { Stop(XmlResult::Malformed); }

  private:
    struct Binding { // a prefix in scope; texts in scopeText_
        UINT32 prefixAt;
        UINT32 prefixLength;
        UINT32 spaceLength; // behind the prefix
        UINT32 depth;       // of the element that declares it
    };
    struct Language { // xml:lang in effect; text in scopeText_
        UINT32 at;
        UINT32 length;
        UINT32 depth;
    };
    struct Names; // what the parser's text for a name consists of

    void Stop(XmlResult result);
    void EnterScope(const char** attributes);
    void LeaveScope();
    bool IsTaking() const { return takesFrom_ != kNoDepth; }
    // True for the elements that stand alone in what is taken: they declare all that is in scope.
    bool IsOutermost(unsigned depth) const;
    void WriteStart(const Names& names, const char** attributes);
    void WriteEnd(const Names& names);
    void WriteDeclarations(bool all);
    void WriteBinding(const Binding& binding);
    void WriteEscaped(std::string_view text, bool isAttribute);
    void CloseTag();
    void Write(std::string_view text);

    static constexpr unsigned kNoDepth = ~0U;

    XmlHandler& handler_;
    void* parser_ = nullptr;
    XmlResult result_ = XmlResult::Whole;
    unsigned depth_ = 0; // of the next element
    GrowingArray<Binding> bindings_;
    GrowingArray<Language> languages_;
    GrowingText scopeText_;
    size_t declared_ = 0; // bindings of elements that have begun
    unsigned takesFrom_ = kNoDepth;
    Capture takesWhat_ = Capture::Element;
    bool isTagOpen_ = false; // ">" or "/>" is still to come
    GrowingText taken_;
    UINT64 budget_ = 0; // bytes that may still be written
};

} // namespace standard
