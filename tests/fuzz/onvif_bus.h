// A bus for slewonvif's fuzz targets: holds keys in memory and takes preset
// commands as the daemon would, so that every operation runs to its end.
#pragma once

#include <cstdio>
#include <map>
#include <string>

#include "service.h"

class FuzzBus : public onvif::Bus {
 public:
  buslink::BusReply get(const std::string& key, std::string* value, std::string*) const override {
    auto it = keys.find(key);
    if (it == keys.end()) return buslink::BusReply::kNoValue;
    *value = it->second;
    return buslink::BusReply::kOk;
  }
  buslink::BusReply set(const std::string& key, const std::string& value, std::string*) const override {
    int id = 0;
    if (sscanf(value.c_str(), "set_preset:id:%d", &id) == 1) {
      keys["ptz.preset.position." + std::to_string(id)] = "id:" + std::to_string(id) + ",pan:1,tilt:2,zoom:3,focus:-1,pref:0,name:x";
    } else if (sscanf(value.c_str(), "clr_preset:%d", &id) == 1) {
      keys.erase("ptz.preset.position." + std::to_string(id));
    } else if (keys.size() < 64) {
      keys[key] = value;
    }
    return buslink::BusReply::kOk;
  }
  buslink::BusReply list(const std::string& prefix, std::map<std::string, std::string>* out,
                         std::string*) const override {
    for (const auto& [k, v] : keys) {
      if (k.rfind(prefix, 0) == 0) (*out)[k] = v;
    }
    return buslink::BusReply::kOk;
  }
  mutable std::map<std::string, std::string> keys;
};
