// The line protocol between slewd's bus socket and its clients (slewctl), and
// where the real-time camera keeps its state. Shared by server and client, so
// it depends on nothing else of the simulated camera.
//
// One request per line, one or more reply lines:
//   get KEY          -> "value TEXT" | "none" | "error WHY"
//   set KEY TEXT     -> "ok" | "error WHY"           (TEXT: rest of the line)
//   list [PREFIX]    -> "entry KEY=TEXT"... then "end"
//   watch [PREFIX]   -> "ok", then "change KEY=TEXT" for every write, forever
// TEXT is escaped so that it stays on one line: "\\" for a backslash and "\n"
// for a line feed.
#pragma once

#include <string>
#include <string_view>

namespace sim {

// Longest request or reply line; generous for a 127-character key and value.
constexpr size_t kProtoLineMax = 1024;

// Escapes backslashes and line feeds of a value for the wire.
std::string proto_escape(std::string_view text);
// Reverses proto_escape; false on a malformed escape.
bool proto_unescape(std::string_view wire, std::string* text);

// Reads lines from a socket, one at a time.
class LineReader {
 public:
  explicit LineReader(int fd) : fd_(fd) {}
  // Next line without its line feed; false on end of stream, error or a line
  // longer than kProtoLineMax.
  bool next(std::string* line);

 private:
  int fd_;
  std::string buffered_;
};

// Writes all of text; false when the peer has gone.
bool proto_send(int fd, std::string_view text);

// The state folder: $SLEWD_STATE, else $HOME/.local/state/slewd. False with
// a message when neither variable is set.
bool state_folder(std::string* folder, std::string* error);
// The bus socket inside a state folder.
std::string socket_path(const std::string& folder);

}  // namespace sim
