// SOAP 1.2 envelopes of slewonvif: a bounded parse of a request, the
// namespaces of its elements, and the answers and faults written back.
#pragma once

#include <pugixml.hpp>

#include <string>
#include <string_view>

namespace onvif {

// Namespaces of the envelope and of the services served.
inline constexpr std::string_view kNsEnvelope = "http://www.w3.org/2003/05/soap-envelope";
inline constexpr std::string_view kNsEnvelope11 = "http://schemas.xmlsoap.org/soap/envelope/";
inline constexpr std::string_view kNsDevice = "http://www.onvif.org/ver10/device/wsdl";
inline constexpr std::string_view kNsMedia = "http://www.onvif.org/ver10/media/wsdl";
inline constexpr std::string_view kNsMedia2 = "http://www.onvif.org/ver20/media/wsdl";
inline constexpr std::string_view kNsPtz = "http://www.onvif.org/ver20/ptz/wsdl";
inline constexpr std::string_view kNsSchema = "http://www.onvif.org/ver10/schema";
inline constexpr std::string_view kNsSecurity =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd";
inline constexpr std::string_view kNsUtility =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd";

// Bounds of one request.
inline constexpr size_t kMaxRequestBytes = 64 * 1024;  // the body, as posted
inline constexpr int kMaxDepth = 24;                  // elements inside each other
inline constexpr size_t kMaxElements = 2000;          // elements in all
inline constexpr size_t kMaxTextBytes = 1024;         // one text or attribute value

// A refusal, as the client gets it: codes, a reason it shows, an HTTP status.
struct Fault {
  std::string code = "env:Sender";  // env:Sender, env:Receiver or env:VersionMismatch
  std::string subcode;              // e.g. ter:InvalidArgVal; empty for none
  std::string subsubcode;           // e.g. ter:NoProfile; empty for none
  std::string reason;
  int http_status = 400;
};

// A fault of the client's making with its ter: codes and reason.
Fault sender_fault(std::string subcode, std::string subsubcode, std::string reason);

// A parsed request: the document, its Header (may be empty) and the first
// element of its Body with that element's namespace and local name.
struct Request {
  pugi::xml_document doc;
  pugi::xml_node header;
  pugi::xml_node operation;
  std::string ns;
  std::string name;
};

// Parses a SOAP 1.2 request within the bounds above; false with the fault
// to send for anything else (no DOCTYPE, no SOAP 1.1, no empty Body).
bool parse_request(std::string_view text, Request* out, Fault* fault);

// The namespace URI of an element, from the xmlns declarations in scope.
std::string namespace_of(pugi::xml_node node);
// The name of an element without its prefix.
std::string_view local_name(pugi::xml_node node);
// The first child element with this local name and namespace, or an empty node.
pugi::xml_node child(pugi::xml_node parent, std::string_view name, std::string_view ns);
// The first child element with this local name, in any namespace.
pugi::xml_node child_any(pugi::xml_node parent, std::string_view name);
// The trimmed text inside an element.
std::string text_of(pugi::xml_node node);

// Text made safe inside an element or a quoted attribute.
std::string escape(std::string_view text);
// A whole answer: the envelope around body_xml, with every prefix declared.
std::string envelope(std::string_view body_xml);
// A whole fault answer.
std::string fault_envelope(const Fault& fault);

}  // namespace onvif
