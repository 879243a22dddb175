// A bus in memory for slewonvif's handler tests and fuzz targets: keys in a
// map (at most 64 besides presets), the last writes recorded, and preset
// commands taken as the daemon takes them, so every operation runs to its end.
#pragma once

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "service.h"

class MemoryBus : public onvif::Bus {
 public:
  buslink::BusReply get(const std::string& key, std::string* value, std::string*) const override {
    auto it = keys.find(key);
    if (it == keys.end()) return buslink::BusReply::kNoValue;
    *value = it->second;
    return buslink::BusReply::kOk;
  }
  buslink::BusReply set(const std::string& key, const std::string& value, std::string*) const override {
    if (writes.size() >= 256) writes.erase(writes.begin());
    writes.push_back(key + "=" + value);
    int id = 0;
    size_t name = value.find("name:");
    if (key == "ptz.run_mode" && sscanf(value.c_str(), "set_preset:id:%d", &id) == 1) {
      keys["ptz.preset.position." + std::to_string(id)] = "id:" + std::to_string(id) +
          ",pan:0,tilt:0,zoom:0,focus:-1,pref:0,name:" + (name == std::string::npos ? "" : value.substr(name + 5));
    } else if (key == "ptz.run_mode" && sscanf(value.c_str(), "clr_preset:%d", &id) == 1) {
      keys.erase("ptz.preset.position." + std::to_string(id));
    } else if (keys.size() < 64 || keys.count(key) != 0) {
      keys[key] = value;
    }
    return buslink::BusReply::kOk;
  }
  buslink::BusReply list(const std::string& prefix, std::map<std::string, std::string>* out, std::string*) const override {
    for (const auto& [k, v] : keys) {
      if (k.rfind(prefix, 0) == 0) (*out)[k] = v;
    }
    return buslink::BusReply::kOk;
  }
  mutable std::map<std::string, std::string> keys;
  mutable std::vector<std::string> writes;
};
