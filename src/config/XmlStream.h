// Read access to XML files by slash paths, on libxml2.
//
// A document that is not well-formed XML 1.0 is refused as a whole. Refused are also, so that no
// file can cost more than the reading of it:
// - a file of more than 4 MiB
// - a document type that declares anything. One that names an external file is taken, and the file
//   is never fetched; a reference to an entity that this file may declare is refused
// - an element with more than 256 attributes
// - more than 64 declarations of namespaces
#pragma once

#include <memory>
#include <string>

struct _xmlDoc;   // NOLINT(bugprone-reserved-identifier): libxml2's names
struct _xmlNode;  // NOLINT(bugprone-reserved-identifier)

// A light handle on one element of a CXmlStream, valid as long as that stream; or null.
class CXmlNode {
 public:
  CXmlNode() = default;
  explicit CXmlNode(const _xmlNode* node) : m_node(node) {}

  // True when the handle designates an element. The operations below answer a null handle with an
  // empty text or a null handle.
  explicit operator bool() const { return m_node != nullptr; }

  // The element's own text as stored, untrimmed; that of its child elements is not part of it.
  std::string getContent() const;
  void getContent(std::string& out) const { out = getContent(); }
  // The value of attribute `name`; empty when there is none.
  void getProp(const char* name, std::string& out) const;
  // The next sibling element, whatever its name; null after the last.
  CXmlNode next() const;
  // The first child element; null where there is none.
  CXmlNode child() const;
  std::string name() const;
  // The line of the file that the element's start tag ends on, from 1; 0 for a null handle.
  long line() const;

 private:
  const _xmlNode* m_node = nullptr;
};

// A parsed document. It is parsed once and then queried.
class CXmlStream {
 public:
  CXmlStream();
  ~CXmlStream();
  CXmlStream(const CXmlStream&) = delete;
  CXmlStream& operator=(const CXmlStream&) = delete;

  // Reads and parses the whole file. False when it is missing, no regular file, not well-formed or
  // refused (see above); getError() then says why.
  bool parseFile(const char* path);
  bool parseFile(const std::string& path) { return parseFile(path.c_str()); }
  // One line: the parser's text with the line number, or what else was wrong.
  const std::string& getError() const { return m_error; }

  // Resolves "/root/a/b" from the document element, taking the first child element of each name;
  // null when a step is missing.
  CXmlNode getNode(const char* path) const;
  CXmlNode getNode(const std::string& path) const { return getNode(path.c_str()); }

 private:
  struct Deleter {
    void operator()(_xmlDoc* document) const;
  };
  std::unique_ptr<_xmlDoc, Deleter> m_document;
  std::string m_error;
};
