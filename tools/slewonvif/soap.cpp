// Bounded SOAP 1.2 parsing with pugixml and the envelopes of the answers.
#include "soap.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

namespace onvif {
namespace {

// The prefixes every answer may use, declared once on the envelope.
constexpr const char* kEnvelopeOpen =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<env:Envelope xmlns:env=\"http://www.w3.org/2003/05/soap-envelope\""
    " xmlns:tt=\"http://www.onvif.org/ver10/schema\""
    " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\""
    " xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\""
    " xmlns:tr2=\"http://www.onvif.org/ver20/media/wsdl\""
    " xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\""
    " xmlns:ter=\"http://www.onvif.org/ver10/error\""
    " xmlns:xs=\"http://www.w3.org/2001/XMLSchema\">"
    "<env:Body>";
constexpr const char* kEnvelopeClose = "</env:Body></env:Envelope>";

// True when text holds a document type declaration, in any case.
bool has_doctype(std::string_view text) {
  constexpr std::string_view kDoctype = "<!doctype";
  auto it = std::search(text.begin(), text.end(), kDoctype.begin(), kDoctype.end(),
                        [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
  return it != text.end();
}

// Checks depth, element count and text sizes of the whole tree without recursion.
bool within_bounds(pugi::xml_node root, std::string* why) {
  std::vector<std::pair<pugi::xml_node, int>> stack{{root, 0}};
  size_t elements = 0;
  while (!stack.empty()) {
    auto [node, depth] = stack.back();
    stack.pop_back();
    if (node.type() == pugi::node_element) {
      if (++elements > kMaxElements) return *why = "too many elements", false;
      if (depth > kMaxDepth) return *why = "elements nested too deep", false;
      for (pugi::xml_attribute a : node.attributes()) {
        if (strlen(a.value()) > kMaxTextBytes) return *why = "attribute value too long", false;
      }
    } else if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) {
      if (strlen(node.value()) > kMaxTextBytes) return *why = "text too long", false;
    }
    for (pugi::xml_node c : node.children()) stack.push_back({c, depth + 1});
  }
  return true;
}

}  // namespace

Fault sender_fault(std::string subcode, std::string subsubcode, std::string reason) {
  Fault f;
  f.subcode = std::move(subcode);
  f.subsubcode = std::move(subsubcode);
  f.reason = std::move(reason);
  return f;
}

std::string_view local_name(pugi::xml_node node) {
  std::string_view n = node.name();
  size_t colon = n.find(':');
  return colon == std::string_view::npos ? n : n.substr(colon + 1);
}

std::string namespace_of(pugi::xml_node node) {
  std::string_view n = node.name();
  size_t colon = n.find(':');
  std::string attr = colon == std::string_view::npos ? "xmlns" : "xmlns:" + std::string(n.substr(0, colon));
  for (pugi::xml_node p = node; p && p.type() == pugi::node_element; p = p.parent()) {
    pugi::xml_attribute a = p.attribute(attr.c_str());
    if (a) return a.value();
  }
  return "";
}

pugi::xml_node child(pugi::xml_node parent, std::string_view name, std::string_view ns) {
  for (pugi::xml_node c : parent.children()) {
    if (c.type() == pugi::node_element && local_name(c) == name && namespace_of(c) == ns) return c;
  }
  return {};
}

pugi::xml_node child_any(pugi::xml_node parent, std::string_view name) {
  for (pugi::xml_node c : parent.children()) {
    if (c.type() == pugi::node_element && local_name(c) == name) return c;
  }
  return {};
}

std::string text_of(pugi::xml_node node) {
  std::string t = node.child_value();
  size_t b = t.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  size_t e = t.find_last_not_of(" \t\r\n");
  return t.substr(b, e - b + 1);
}

bool parse_request(std::string_view text, Request* out, Fault* fault) {
  auto refuse = [&](const std::string& why) {
    *fault = sender_fault("ter:WellFormed", "", why);
    return false;
  };
  if (text.size() > kMaxRequestBytes) return refuse("request over 64 KiB");
  if (has_doctype(text)) return refuse("a document type declaration is not accepted");
  pugi::xml_parse_result r = out->doc.load_buffer(text.data(), text.size(),
                                                  pugi::parse_default & ~pugi::parse_doctype, pugi::encoding_utf8);
  if (!r) return refuse(std::string("malformed XML: ") + r.description());
  std::string why;
  if (!within_bounds(out->doc, &why)) return refuse(why);
  pugi::xml_node env = out->doc.document_element();
  std::string env_ns = namespace_of(env);
  if (local_name(env) != "Envelope" || (env_ns != kNsEnvelope && env_ns != kNsEnvelope11)) {
    return refuse("not a SOAP envelope");
  }
  if (env_ns == kNsEnvelope11) {
    fault->code = "env:VersionMismatch";
    fault->subcode.clear();
    fault->subsubcode.clear();
    fault->reason = "SOAP 1.2 only";
    fault->http_status = 400;
    return false;
  }
  out->header = child(env, "Header", kNsEnvelope);
  pugi::xml_node body = child(env, "Body", kNsEnvelope);
  for (pugi::xml_node c : body.children()) {
    if (c.type() == pugi::node_element) {
      out->operation = c;
      break;
    }
  }
  if (!out->operation) return refuse("the Body holds no request");
  out->ns = namespace_of(out->operation);
  out->name = std::string(local_name(out->operation));
  return true;
}

std::string escape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default:
        // Control characters have no place in XML 1.0 text.
        if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r') {
          out += '?';
        } else {
          out += c;
        }
    }
  }
  return out;
}

std::string envelope(std::string_view body_xml) {
  std::string out = kEnvelopeOpen;
  out += body_xml;
  out += kEnvelopeClose;
  return out;
}

std::string fault_envelope(const Fault& f) {
  std::string code = "<env:Code><env:Value>" + f.code + "</env:Value>";
  if (!f.subcode.empty()) {
    code += "<env:Subcode><env:Value>" + f.subcode + "</env:Value>";
    if (!f.subsubcode.empty()) code += "<env:Subcode><env:Value>" + f.subsubcode + "</env:Value></env:Subcode>";
    code += "</env:Subcode>";
  }
  code += "</env:Code>";
  return envelope("<env:Fault>" + code + "<env:Reason><env:Text xml:lang=\"en\">" + escape(f.reason) +
                  "</env:Text></env:Reason></env:Fault>");
}

}  // namespace onvif
