// Interned texts of the camera state (the model id handed out by get_modelid).
#include "world/camstate.h"

#include <set>
#include <string>

namespace sim {

const char* intern_text(const char* text) {
  static std::set<std::string> texts;  // nodes never move, so c_str() stays valid
  return texts.insert(text ? text : "").first->c_str();
}

}  // namespace sim
