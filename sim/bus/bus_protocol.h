// The line protocol between slewd's bus socket and its clients (slewctl), and
// where the real-time camera keeps its state. Shared by server and client, so
// it depends on nothing else of the simulated camera.
//
// One request per line, one or more reply lines:
//   get KEY          -> "value TEXT" | "none" | "error WHY"
//   set KEY TEXT     -> "ok" | "error WHY"           (TEXT: rest of the line)
//   list [PREFIX]    -> "entry KEY=TEXT"... then "end"
//   watch [PREFIX]   -> "ok", then "change KEY=TEXT" for every write, forever
// TEXT is escaped so that it stays on one line: "\\" for a backslash, "\n"
// for a line feed and "\r" for a carriage return. A request line may end in
// CR LF. A line over kProtoLineMax is answered "error line over 1024
// characters" and the connection closed.
#pragma once

#include <sys/un.h>

#include <string>
#include <string_view>

namespace sim {

// Longest request or reply line; generous for a 127-character key and value.
constexpr size_t kProtoLineMax = 1024;

// Escapes backslashes, line feeds and carriage returns of a value for the
// wire.
std::string proto_escape(std::string_view text);
// A value as a terminal may show it: backslash, control characters (C0, DEL
// and the two-byte UTF-8 C1 codes) escaped as \\, \n, \r, \t, \e or \xHH.
std::string display_escape(std::string_view text);
// Reverses proto_escape; false on a malformed escape.
bool proto_unescape(std::string_view wire, std::string* text);

// True when line begins with word and a blank, or is the word alone; rest
// gets what follows the blank.
bool proto_word(const std::string& line, const char* word, std::string* rest);
// Splits "KEY=TEXT" (TEXT escaped) into key and value; false when malformed.
bool proto_split_entry(const std::string& entry, std::string* key, std::string* value);

// Reads lines from a socket, one at a time.
class LineReader {
 public:
  explicit LineReader(int fd) : fd_(fd) {}
  // Next line without its line feed (nor a CR before it); false on end of
  // stream, error or a line longer than kProtoLineMax.
  bool next(std::string* line);
  // Whether next() failed on a line longer than kProtoLineMax.
  bool overlong() const { return overlong_; }
  // Whether a whole line is waiting in the buffer already.
  bool buffered() const { return buffered_.find('\n') != std::string::npos; }

 private:
  int fd_;
  std::string buffered_;
  bool overlong_ = false;
};

// Writes all of text; false when the peer has gone.
bool proto_send(int fd, std::string_view text);

// The state folder: $SLEWD_STATE, else $HOME/.local/state/slewd. False with
// a message when neither variable is set.
bool state_folder(std::string* folder, std::string* error);
// The bus socket inside a state folder.
std::string socket_path(const std::string& folder);
// The address of a socket file; false with a one-line reason when the path
// does not fit.
bool socket_address(const std::string& path, sockaddr_un* address, std::string* error);
// Sets a socket's receive and send time limit in seconds (0: none).
void set_socket_timeout(int fd, double seconds);
// A stream socket connected to the socket file, with receive and send bounds
// of limit_s seconds (0: none); -1 with a one-line reason and errno
// (ENAMETOOLONG for a path that does not fit).
int connect_socket(const std::string& path, double limit_s, std::string* error);

}  // namespace sim
