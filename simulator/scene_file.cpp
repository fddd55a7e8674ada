// Scenes in JSON. Every error names the line of the text.

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "simulator/scene.h"

namespace spectralsim {

namespace {

constexpr std::size_t kDeepest = 8;  // a scene needs four levels of lists and objects

[[noreturn]] void refuse(int line, const std::string& why) {
  throw std::invalid_argument("line " + std::to_string(line) + ": " + why);
}

// A value of the text with its line, which nlohmann's own values do not have.
struct Value {
  enum class Kind { kNumber, kText, kList, kObject, kOther };
  Kind kind = Kind::kOther;
  int line = 1;
  double number = 0.0;
  std::string text;
  std::vector<Value> children;  // of a list or an object
  std::string key;              // of a child of an object

  const Value* find(const std::string& wanted) const {
    for (const Value& child : children) {
      if (child.key == wanted) return &child;
    }
    return nullptr;
  }
};

// The lines of a text that is being read.
struct Lines {
  int current = 1;
  int last_used = 1;  // the line of the last character that is not a blank
};

// Counts the lines while the parser reads. The parser may read one character beyond a number, so
// only characters that are not blank determine the line of a value.
class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* at, Lines* lines) : m_at(at), m_lines(lines) {}
  reference operator*() const { return *m_at; }
  CountingIterator& operator++() {
    const bool is_blank = std::strchr(" \t\r\n", *m_at) != nullptr;
    if (!is_blank) m_lines->last_used = m_lines->current;
    if (*m_at == '\n') ++m_lines->current;
    ++m_at;
    return *this;
  }
  CountingIterator operator++(int) {
    const CountingIterator before = *this;
    ++*this;
    return before;
  }
  bool operator==(const CountingIterator& other) const { return m_at == other.m_at; }
  bool operator!=(const CountingIterator& other) const { return m_at != other.m_at; }

 private:
  const char* m_at;
  Lines* m_lines;
};

// Builds a Value from the parser's events.
class Builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit Builder(const Lines* lines) : m_lines(lines) {}
  Value take() { return std::move(m_root); }

  bool null() override { return add(Value::Kind::kOther) != nullptr; }
  bool boolean(bool) override { return add(Value::Kind::kOther) != nullptr; }
  bool binary(binary_t&) override { return add(Value::Kind::kOther) != nullptr; }
  bool number_integer(number_integer_t value) override {
    return add_number(static_cast<double>(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    return add_number(static_cast<double>(value));
  }
  bool number_float(number_float_t value, const string_t&) override { return add_number(value); }
  bool string(string_t& text) override {
    add(Value::Kind::kText)->text = text;
    return true;
  }

  bool start_object(std::size_t) override { return open(Value::Kind::kObject); }
  bool start_array(std::size_t) override { return open(Value::Kind::kList); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool key(string_t& key) override {
    if (const Value* before = m_open.back()->find(key)) {
      refuse(m_lines->last_used,
             "\"" + key + "\" stands on line " + std::to_string(before->line) + " already");
    }
    m_key = key;
    return true;
  }

  // The parser's own text begins with a code in brackets and with the place.
  bool parse_error(std::size_t, const std::string&,
                   const nlohmann::detail::exception& error) override {
    std::string why = error.what();
    if (const auto end = why.find("] "); end != std::string::npos) why.erase(0, end + 2);
    const auto end = why.find(": ");
    if (why.rfind("parse error at", 0) == 0 && end != std::string::npos) why.erase(0, end + 2);
    refuse(m_lines->last_used, why);
  }

 private:
  Value* add(Value::Kind kind) {
    Value* added = m_open.empty() ? &m_root : &m_open.back()->children.emplace_back();
    added->kind = kind;
    added->line = m_lines->last_used;
    added->key = std::exchange(m_key, "");
    return added;
  }
  bool add_number(double number) {
    add(Value::Kind::kNumber)->number = number;
    return true;
  }
  bool open(Value::Kind kind) {
    if (m_open.size() == kDeepest) refuse(m_lines->last_used, "too many lists within lists");
    m_open.push_back(add(kind));
    return true;
  }
  bool close() {
    m_open.pop_back();
    return true;
  }

  const Lines* m_lines;
  Value m_root;
  std::vector<Value*> m_open;  // the lists and objects around the current value
  std::string m_key;
};

Value parse(const std::string& text) {
  Lines lines;
  Builder builder(&lines);
  const char* const begin = text.data();
  nlohmann::json::sax_parse(CountingIterator(begin, &lines),
                            CountingIterator(begin + text.size(), &lines), &builder);
  return builder.take();
}

using Keys = std::vector<std::string>;

// The texts in quotes, as a list.
std::string listed(const Keys& keys) {
  std::string list;
  for (const std::string& key : keys) list += (list.empty() ? "\"" : ", \"") + key + "\"";
  return list;
}

// Refuses an object with another key, which is most likely a misspelt one.
void know_all(const Value& object, const std::string& what, const Keys& known) {
  if (object.kind != Value::Kind::kObject) refuse(object.line, what + " is an object");
  for (const Value& child : object.children) {
    bool is_known = false;
    for (const std::string& key : known) is_known = is_known || key == child.key;
    if (is_known) continue;
    refuse(child.line, what + " has no \"" + child.key + "\"; it has " + listed(known));
  }
}

Light light_of(const Value& value) {
  const std::size_t count = value.children.size();
  if (value.kind != Value::Kind::kList || count != Light{}.size()) {
    refuse(value.line, "\"light\" is a list of six numbers, one for each channel");
  }
  Light light = {};
  for (std::size_t i = 0; i < count; ++i) {
    const Value& channel = value.children[i];
    if (channel.kind != Value::Kind::kNumber || channel.number < 0) {
      refuse(channel.line, "the light of a channel is a number, 0 or more");
    }
    light[i] = channel.number;
  }
  return light;
}

std::vector<Scene::Point> points_of(const Value& scene) {
  const Value* light = scene.find("light");
  const Value* list = scene.find("points");
  if ((light == nullptr) == (list == nullptr)) {
    refuse(scene.line, "a scene has either \"light\" or \"points\"");
  }
  if (light != nullptr) return {{0.0, light_of(*light)}};
  if (list->kind != Value::Kind::kList || list->children.empty()) {
    refuse(list->line, "\"points\" is a list with at least one point");
  }
  std::vector<Scene::Point> points;
  for (const Value& point : list->children) {
    know_all(point, "a point", {"at_ms", "light"});
    const Value* at = point.find("at_ms");
    if (at == nullptr || at->kind != Value::Kind::kNumber || point.find("light") == nullptr) {
      refuse(point.line, "a point has \"at_ms\", a number, and \"light\"");
    }
    if (!points.empty() && at->number < points.back().at_ms) {
      refuse(at->line, "a point's \"at_ms\" is not less than that of the point before");
    }
    points.push_back({at->number, light_of(*point.find("light"))});
  }
  return points;
}

// The number of this key, or `otherwise` without the key.
double number_of(const Value& wave, const char* key, double otherwise, double low, double high) {
  const Value* value = wave.find(key);
  if (value == nullptr) return otherwise;
  if (value->kind == Value::Kind::kNumber && value->number >= low && value->number <= high) {
    return value->number;
  }
  std::ostringstream why;
  why << "\"" << key << "\" is a number from " << low << " to " << high;
  refuse(value->line, why.str());
}

Wave wave_of(const Value& value) {
  struct KindOfWave {
    const char* name;
    Wave::Kind kind;
    Keys keys;
  };
  static const KindOfWave kinds[] = {
      {"mains", Wave::Kind::kMains, {"wave", "hz", "share"}},
      {"pwm", Wave::Kind::kPwm, {"wave", "hz", "duty", "share"}},
      {"candle", Wave::Kind::kCandle, {"wave", "share"}},
  };
  const Value* name = value.find("wave");
  for (const KindOfWave& kind : kinds) {
    if (name == nullptr || name->text != kind.name) continue;
    know_all(value, std::string("a ") + kind.name + " wave", kind.keys);
    Wave wave;
    wave.kind = kind.kind;
    wave.hz = number_of(value, "hz", wave.hz, 1.0, 100000.0);
    wave.duty = number_of(value, "duty", wave.duty, 0.001, 1.0);
    wave.share = number_of(value, "share", wave.share, 0.0, 1.0);
    return wave;
  }
  refuse(name != nullptr ? name->line : value.line,
         "a wave is an object whose \"wave\" is \"mains\", \"pwm\" or \"candle\"");
}

std::string content_of(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  if (file && file.peek() != std::ifstream::traits_type::eof()) text << file.rdbuf();
  if (file.is_open() && !file.bad()) return text.str();
  throw std::invalid_argument("cannot read the scene file " + path + ": " + std::strerror(errno));
}

}  // namespace

Scene Scene::from_json(const std::string& text) {
  const Value value = parse(text);
  know_all(value, "a scene", {"light", "points", "flicker"});
  Scene scene(points_of(value));
  const Value* flicker = value.find("flicker");
  if (flicker == nullptr) return scene;
  if (flicker->kind != Value::Kind::kList) refuse(flicker->line, "\"flicker\" is a list of waves");
  std::vector<Wave> waves;
  for (const Value& wave : flicker->children) waves.push_back(wave_of(wave));
  try {
    return scene.flicker(std::move(waves));
  } catch (const std::invalid_argument& error) {
    refuse(flicker->line, error.what());
  }
}

Scene Scene::named_or_file(const std::string& name) {
  const std::string suffix = ".json";
  if (name.size() <= suffix.size() ||
      name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) {
    return named(name);
  }
  const std::string text = content_of(name);
  try {
    return from_json(text);
  } catch (const std::invalid_argument& error) {
    throw std::invalid_argument(name + ", " + error.what());
  }
}

}  // namespace spectralsim
