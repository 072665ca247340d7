#ifndef LINUX_CAPTURE_ADDON_JS_OBJECT_JS_H_
#define LINUX_CAPTURE_ADDON_JS_OBJECT_JS_H_

#include <node_api.h>

#include <cstdint>
#include <string>
#include <vector>

namespace linux_capture {

// Builds one plain JavaScript object, key by key in call order. The first
// failing Node-API call is remembered and ends the building; check status()
// before using value(). It never throws, so it serves deliveries in an
// environment that is going away as well as exported functions.
class JsObject {
 public:
  explicit JsObject(napi_env env) : env_(env) {
    status_ = napi_create_object(env_, &value_);
  }

  JsObject& Number(const char* key, double number) {
    return With(key, [&](napi_value* out) {
      return napi_create_double(env_, number, out);
    });
  }
  // Unsigned 64-bit counters convert exactly up to 2^53.
  JsObject& Number(const char* key, std::uint64_t number) {
    return Number(key, static_cast<double>(number));
  }
  JsObject& Number(const char* key, std::int64_t number) {
    return Number(key, static_cast<double>(number));
  }
  JsObject& Number(const char* key, std::uint32_t number) {
    return Number(key, static_cast<double>(number));
  }
  JsObject& Number(const char* key, std::int32_t number) {
    return Number(key, static_cast<double>(number));
  }
  JsObject& Bool(const char* key, bool flag) {
    return With(key, [&](napi_value* out) {
      return napi_get_boolean(env_, flag, out);
    });
  }
  JsObject& Text(const char* key, const std::string& text) {
    return With(key, [&](napi_value* out) {
      return napi_create_string_utf8(env_, text.data(), text.size(), out);
    });
  }
  // A property that is there to be read, and not among the object's keys.
  JsObject& HiddenText(const char* key, const std::string& text) {
    napi_property_descriptor property{};
    property.utf8name = key;
    property.attributes = static_cast<napi_property_attributes>(
        napi_writable | napi_configurable);
    if (status_ == napi_ok) {
      status_ = napi_create_string_utf8(env_, text.data(), text.size(),
                                        &property.value);
    }
    if (status_ == napi_ok) {
      status_ = napi_define_properties(env_, value_, 1, &property);
    }
    return *this;
  }
  JsObject& Object(const char* key, const JsObject& nested) {
    if (status_ == napi_ok) status_ = nested.status_;
    return Value(key, nested.value_);
  }
  JsObject& Value(const char* key, napi_value value) {
    if (status_ == napi_ok) {
      status_ = napi_set_named_property(env_, value_, key, value);
    }
    return *this;
  }
  // An array of one element per item; `build(env, item)` gives a JsObject.
  template <typename Item, typename Build>
  JsObject& Array(const char* key, const std::vector<Item>& items,
                  Build build) {
    return With(key, [&](napi_value* out) {
      napi_status status =
          napi_create_array_with_length(env_, items.size(), out);
      for (std::uint32_t i = 0; status == napi_ok && i < items.size(); ++i) {
        const JsObject element = build(env_, items[i]);
        status = element.status_;
        if (status == napi_ok) {
          status = napi_set_element(env_, *out, i, element.value_);
        }
      }
      return status;
    });
  }
  template <typename List>
  JsObject& Numbers(const char* key, const List& numbers) {
    return With(key, [&](napi_value* out) {
      napi_status status = napi_create_array(env_, out);
      std::uint32_t index = 0;
      for (const auto number : numbers) {
        napi_value element = nullptr;
        if (status == napi_ok) {
          status =
              napi_create_double(env_, static_cast<double>(number), &element);
        }
        if (status == napi_ok) {
          status = napi_set_element(env_, *out, index++, element);
        }
      }
      return status;
    });
  }

  [[nodiscard]] napi_status status() const { return status_; }
  [[nodiscard]] napi_value value() const { return value_; }

  // `make(napi_value*)` gives the property's value.
  template <typename Make>
  JsObject& With(const char* key, Make make) {
    napi_value value = nullptr;
    if (status_ == napi_ok) status_ = make(&value);
    return Value(key, value);
  }

 private:
  napi_env env_;
  napi_value value_ = nullptr;
  napi_status status_ = napi_ok;
};

}  // namespace linux_capture

#endif  // LINUX_CAPTURE_ADDON_JS_OBJECT_JS_H_
