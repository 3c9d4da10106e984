#include "config/XmlStream.h"

#include <fcntl.h>
#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <new>
#include <string_view>
#include <system_error>
#include <utility>

#include "support/file.h"

namespace {

// Far beyond any definition file; the tree of a document takes some thirty times its size.
constexpr off_t kLargestFile = 4 << 20;
// The most attributes of an element, since each of them is compared with all others.
constexpr int kMostAttributes = 256;
constexpr char kTooManyAttributes[] = "an element with more than 256 attributes is not accepted";
// The most namespaces of a document: each name with a prefix is looked up in all that surround it.
constexpr int kMostNamespaces = 64;
constexpr char kTooManyNamespaces[] = "more than 64 namespaces are not accepted";

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

struct ParserDeleter {
  void operator()(xmlParserCtxt* parser) const { xmlFreeParserCtxt(parser); }
};

// One document on its way from a file through the parser, which asks for the text piece by piece:
// so nothing is read behind the first mistake, nor while an element gathers attribute on attribute.
// The parser compares each of these with all others, and only then tells of the element.
class Parsing {
 public:
  explicit Parsing(int fd) : m_fd(fd), m_parser(xmlNewParserCtxt()) {
    if (m_parser == nullptr) throw std::bad_alloc();
    m_parser->_private = this;
    m_parser->sax->internalSubset = OnDocumentType;
    m_parser->sax->startElementNs = OnElement;
    xmlSetStructuredErrorFunc(this, OnError);
  }
  ~Parsing() { xmlSetStructuredErrorFunc(nullptr, nullptr); }
  Parsing(const Parsing&) = delete;
  Parsing& operator=(const Parsing&) = delete;

  // The document, which is the caller's; null when it is refused. `path` is for messages.
  xmlDoc* Run(const char* path);
  // Why the document is refused: its first mistake, since later ones mostly follow from that.
  const std::string& error() const { return m_error; }

 private:
  void Refuse(std::string_view why, int line);
  // From within a call of the parser: nothing more of the document is looked at.
  void RefuseAtOnce(std::string_view why);
  static Parsing& Of(void* parser) {
    return *static_cast<Parsing*>(static_cast<xmlParserCtxt*>(parser)->_private);
  }

  // What the parser calls.
  static int Read(void* parsing, char* buffer, int size);
  static void OnDocumentType(void* parser, const xmlChar* name, const xmlChar* public_id,
                             const xmlChar* system_id);
  static void OnElement(void* parser, const xmlChar* name, const xmlChar* prefix,
                        const xmlChar* uri, int namespace_count, const xmlChar** namespaces,
                        int attribute_count, int defaulted, const xmlChar** attributes);
  // The type of the second parameter is const in newer versions of the library.
  template <typename Error>
  static void OnError(void* parsing, Error* error);

  const int m_fd;
  const std::unique_ptr<xmlParserCtxt, ParserDeleter> m_parser;
  std::string m_error;
  // What is wrong with bytes that the parser cannot decode. It decodes ahead, so the line follows
  // when the text before those bytes is used up.
  std::string m_undecoded;
  int m_namespaces = 0;
};

xmlDoc* Parsing::Run(const char* path) {
  constexpr int kOptions =
      XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_COMPACT;
  xmlDoc* const document =
      xmlCtxtReadIO(m_parser.get(), Read, nullptr, this, path, nullptr, kOptions);
  if (m_error.empty()) m_error = m_undecoded;
  if (m_error.empty() && document == nullptr) m_error = "cannot be read";
  if (m_error.empty()) return document;
  xmlFreeDoc(document);
  return nullptr;
}

void Parsing::Refuse(std::string_view why, int line) {
  if (m_error.empty()) m_error.append("line " + std::to_string(line) + ": ").append(why);
}

void Parsing::RefuseAtOnce(std::string_view why) {
  Refuse(why, m_parser->input->line);
  xmlStopParser(m_parser.get());
}

int Parsing::Read(void* parsing, char* buffer, int size) {
  auto& self = *static_cast<Parsing*>(parsing);
  const xmlParserCtxt& parser = *self.m_parser;
  // Far above what OnElement accepts: only an element that is not told of yet can have so many.
  constexpr int kUnfinished = 16 * kMostAttributes;
  if (parser.maxatts > kUnfinished) self.Refuse(kTooManyAttributes, parser.input->line);
  if (parser.nsNr > kUnfinished) self.Refuse(kTooManyNamespaces, parser.input->line);
  if (!self.m_error.empty()) return 0;
  ssize_t taken = 0;
  do {
    taken = read(self.m_fd, buffer, static_cast<std::size_t>(size));
  } while (taken < 0 && errno == EINTR);
  if (taken < 0) self.m_error = std::generic_category().message(errno);
  return static_cast<int>(taken);
}

void Parsing::OnDocumentType(void* parser, const xmlChar* name, const xmlChar* public_id,
                             const xmlChar* system_id) {
  xmlSAX2InternalSubset(parser, name, public_id, system_id);
  const std::string_view rest = View(static_cast<xmlParserCtxt*>(parser)->input->cur);
  if (!rest.starts_with('[')) return;
  const std::string_view inside =
      rest.substr(std::min(rest.find_first_not_of(" \t\r\n", 1), rest.size()));
  if (inside.starts_with(']')) return;
  Of(parser).RefuseAtOnce("a document type with declarations is not accepted");
}

void Parsing::OnElement(void* parser, const xmlChar* name, const xmlChar* prefix,
                        const xmlChar* uri, int namespace_count, const xmlChar** namespaces,
                        int attribute_count, int defaulted, const xmlChar** attributes) {
  Parsing& self = Of(parser);
  self.m_namespaces += namespace_count;
  if (attribute_count > kMostAttributes) {
    self.RefuseAtOnce(kTooManyAttributes);
  } else if (self.m_namespaces > kMostNamespaces) {
    self.RefuseAtOnce(kTooManyNamespaces);
  } else {
    xmlSAX2StartElementNs(parser, name, prefix, uri, namespace_count, namespaces, attribute_count,
                          defaulted, attributes);
  }
}

template <typename Error>
void Parsing::OnError(void* parsing, Error* error) {
  if (error->level < XML_ERR_ERROR || error->message == nullptr) return;
  auto& self = *static_cast<Parsing*>(parsing);
  const std::string_view message = error->message;
  const std::string_view text = message.substr(0, message.find('\n'));
  if (error->domain == XML_FROM_I18N && self.m_undecoded.empty()) self.m_undecoded = text;
  // Mistakes of other domains, with namespaces say, leave a document well-formed. So does an entity
  // that nobody declared where an external file is named, but its text would be missing.
  if (error->domain != XML_FROM_PARSER) return;
  self.Refuse(self.m_undecoded.empty() ? text : self.m_undecoded, error->line);
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
  // A pipe would hold the opening until somebody writes to it.
  const FileDescriptor file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) {
    m_error = std::generic_category().message(errno);
  } else if (!S_ISREG(status.st_mode)) {
    m_error = "not a regular file";
  } else if (status.st_size > kLargestFile) {
    m_error = "larger than 4 MiB";
  } else {
    Parsing parsing(file.get());
    m_document.reset(parsing.Run(path));
    m_error = parsing.error();
  }
  return m_document != nullptr;
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
