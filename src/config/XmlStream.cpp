#include "config/XmlStream.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "support/file.h"

namespace {

// Far beyond any definition file; the tree of a document takes some thirty times its size.
constexpr std::uintmax_t kLargestFile = 4 << 20;

std::string_view View(const xmlChar* text) {
  return text == nullptr ? std::string_view() : reinterpret_cast<const char*>(text);
}

const xmlNode* FirstElement(const xmlNode* node) {
  while (node != nullptr && node->type != XML_ELEMENT_NODE) node = node->next;
  return node;
}

const xmlNode* FirstNamed(const xmlNode* node, std::string_view name) {
  node = FirstElement(node);
  while (node != nullptr && View(node->name) != name) node = FirstElement(node->next);
  return node;
}

// The parser's first complaint while it lives: later ones mostly follow from that.
class FirstError {
 public:
  FirstError() { xmlSetStructuredErrorFunc(&m_text, Keep); }
  ~FirstError() { xmlSetStructuredErrorFunc(nullptr, nullptr); }
  FirstError(const FirstError&) = delete;
  FirstError& operator=(const FirstError&) = delete;

  std::string text() const { return m_text.empty() ? "cannot be read" : m_text; }

 private:
  // The type of the second parameter is const in newer versions of the library.
  template <typename Error>
  static void Keep(void* out, Error* error) {
    std::string& text = *static_cast<std::string*>(out);
    if (!text.empty() || error->message == nullptr || error->level < XML_ERR_ERROR) return;
    const std::string_view message = error->message;
    text = "line " + std::to_string(error->line) + ": " +
           std::string(message.substr(0, message.find('\n')));
  }

  std::string m_text;
};

// A document type that brings anything along beyond its name.
bool DeclaresAnything(const xmlDoc* document) {
  const xmlDtd* type = document->intSubset;
  return type != nullptr &&
         (type->children != nullptr || type->SystemID != nullptr || type->ExternalID != nullptr);
}

}  // namespace

std::string CXmlNode::getContent() const {
  std::string content;
  if (m_node == nullptr) return content;
  for (const xmlNode* child = m_node->children; child != nullptr; child = child->next) {
    if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) {
      content += View(child->content);
    }
  }
  return content;
}

void CXmlNode::getProp(const char* name, std::string& out) const {
  out.clear();
  if (m_node == nullptr) return;
  xmlChar* value = xmlGetProp(m_node, reinterpret_cast<const xmlChar*>(name));
  out = View(value);
  xmlFree(value);
}

CXmlNode CXmlNode::next() const {
  return CXmlNode(m_node == nullptr ? nullptr : FirstElement(m_node->next));
}

CXmlNode CXmlNode::child() const {
  return CXmlNode(m_node == nullptr ? nullptr : FirstElement(m_node->children));
}

std::string CXmlNode::name() const {
  return m_node == nullptr ? std::string() : std::string(View(m_node->name));
}

long CXmlNode::line() const { return m_node == nullptr ? 0 : xmlGetLineNo(m_node); }

CXmlStream::CXmlStream() = default;
CXmlStream::~CXmlStream() = default;

void CXmlStream::Deleter::operator()(_xmlDoc* document) const { xmlFreeDoc(document); }

bool CXmlStream::parseFile(const char* path) {
  m_document.reset();
  m_error.clear();
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) {
    m_error = error ? error.message() : "not a regular file";
    return false;
  }
  if (std::filesystem::file_size(path, error) > kLargestFile) {
    m_error = error ? error.message() : "larger than 4 MiB";
    return false;
  }
  const File file(std::fopen(path, "r"));
  if (file == nullptr) {
    m_error = std::generic_category().message(errno);
    return false;
  }
  const FirstError first;
  m_document.reset(
      xmlReadFd(fileno(file.get()), path, nullptr,
                XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_COMPACT));
  if (m_document == nullptr) {
    m_error = first.text();
    return false;
  }
  if (DeclaresAnything(m_document.get())) {
    m_error = "a document type with declarations is not accepted";
    m_document.reset();
    return false;
  }
  return true;
}

CXmlNode CXmlStream::getNode(const char* path) const {
  const xmlNode* node = nullptr;
  const xmlNode* candidates = m_document == nullptr ? nullptr : m_document->children;
  std::string_view rest = path;
  while (rest.starts_with('/')) {
    rest.remove_prefix(1);
    const std::string_view step = rest.substr(0, rest.find('/'));
    rest.remove_prefix(step.size());
    node = FirstNamed(candidates, step);
    if (node == nullptr) return CXmlNode();
    candidates = node->children;
  }
  return CXmlNode(rest.empty() ? node : nullptr);
}
