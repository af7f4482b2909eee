// Owners for the libxml2 objects the readers hold, so that every path out of
// a reader frees its attribute texts and its document.
#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <stdlib.h>
#include <string.h>

#include "config/EngineConfig.h"

namespace pelk {

// One attribute value from xmlGetProp, released with xmlFree.
class XmlText {
public:
    XmlText(xmlNode* node, const char* name) : text_(xmlGetProp(node, reinterpret_cast<const xmlChar*>(name))) {}
    ~XmlText() {
        if (text_) xmlFree(text_);
    }
    XmlText(const XmlText&) = delete;
    XmlText& operator=(const XmlText&) = delete;

    const char* get() const { return reinterpret_cast<const char*>(text_); }
    // For log lines: printf's %s must never see a null pointer.
    const char* printable() const { return text_ ? get() : "(null)"; }
    // Decimal value as atoi reads it, or the fallback when the attribute is absent.
    int toInt(int fallback) const { return text_ ? atoi(get()) : fallback; }
    // Copies the value into a field of `size` bytes only when it fits whole;
    // an over-long value leaves the field as it was (empty), never cut.
    void copyIfShorter(char* field, size_t size) const {
        if (!text_) return;
        size_t len = strlen(get());
        if (len < size) memcpy(field, get(), len + 1);
    }

private:
    xmlChar* text_;
};

// A parsed document. Freeing it also runs xmlCleanupParser, which the
// readers do after every document they read.
class XmlDocument {
public:
    explicit XmlDocument(const char* path) : doc_(xmlReadFile(path, nullptr, 0)) {}
    ~XmlDocument() {
        if (doc_) {
            xmlFreeDoc(doc_);
            xmlCleanupParser();
        }
    }
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    bool ok() const { return doc_ != nullptr; }
    xmlNode* root() const { return xmlDocGetRootElement(doc_); }
    const char* url() const { return doc_->URL ? reinterpret_cast<const char*>(doc_->URL) : "(null)"; }

private:
    xmlDoc* doc_;
};

// Only element nodes count; text, comment and whitespace nodes never match.
inline bool isElementNamed(const xmlNode* node, const char* name) {
    return node->type == XML_ELEMENT_NODE && compare_string(reinterpret_cast<const char*>(node->name), name);
}

}  // namespace pelk
