// kytool settings: reads, writes and deletes numbered settings in the registry.
#include "kytool.h"

#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <vector>
#include "ky_metric.h"

namespace {

const char kUsage[] =
    "get|set|delete NUMBER [VALUE] [--product P --version V --section S] [--type dword|sz|binary|multi]";

struct Target {
  std::string product = "Tellaro";
  DWORD version = 0x01000015;
  std::string section = "Kernel";
  DWORD type = REG_DWORD;
};

bool ParseType(const std::string &s, DWORD *type) {
  static const struct {
    const char *name;
    DWORD type;
  } kTypes[] = {{"dword", REG_DWORD}, {"sz", REG_SZ}, {"binary", REG_BINARY}, {"multi", REG_MULTI_SZ}};
  for (const auto &t : kTypes)
    if (s == t.name) {
      *type = t.type;
      return true;
    }
  return false;
}

bool ParseHex(const std::string &text, std::vector<BYTE> *out) {
  std::string digits;
  for (char c : text)
    if (c != ' ' && c != ':' && c != '-') digits += c;
  if (digits.size() % 2) return false;
  for (size_t i = 0; i < digits.size(); i += 2) {
    char *end = nullptr;
    std::string pair = digits.substr(i, 2);
    unsigned long b = strtoul(pair.c_str(), &end, 16);
    if (*end) return false;
    out->push_back((BYTE)b);
  }
  return true;
}

// "a|b|c" as a text list: each item terminated, the list closed by an empty item.
std::vector<char> MultiFromBars(const std::string &text) {
  std::vector<char> data;
  for (char c : text) data.push_back(c == '|' ? '\0' : c);
  data.push_back('\0');
  data.push_back('\0');
  return data;
}

int Get(HKYMETRIC h, LONG number, DWORD type) {
  if (KyDoesMetricExist(h, number, type) != S_OK) {
    printf("%ld: not set\n", (long)number);
    return 1;
  }
  char text[4096];
  switch (type) {
  case REG_DWORD: {
    LONG v = KyGetMetric(h, number);
    printf("%ld = %ld (0x%08lX)\n", (long)number, (long)v, (unsigned long)v);
    break;
  }
  case REG_SZ:
    KyGetMetricStringEx(h, number, text, sizeof text, nullptr, TRUE);
    printf("%ld = \"%s\"\n", (long)number, text);
    break;
  case REG_BINARY: {
    BYTE data[4096];
    LONG n = KyGetMetricBinary(h, number, data, sizeof data);
    printf("%ld =", (long)number);
    for (LONG i = 0; i < n; ++i) printf(" %02X", data[i]);
    printf(" (%ld bytes)\n", (long)n);
    break;
  }
  default: {
    LONG n = KyGetMetricMultiStringEx(h, number, text, sizeof text, nullptr, TRUE);
    std::string items;
    for (LONG i = 0; i < n; ++i) items += text[i] ? text[i] : '|';
    // Drop the separator that stands for the last item's terminator.
    if (!items.empty() && items.back() == '|') items.pop_back();
    printf("%ld = %s\n", (long)number, items.c_str());
    break;
  }
  }
  return 0;
}

HRESULT Set(HKYMETRIC h, LONG number, DWORD type, const std::string &value) {
  switch (type) {
  case REG_DWORD:
    return KySetMetric(h, number, (LONG)strtoul(value.c_str(), nullptr, 0));
  case REG_SZ:
    return KySetMetricString(h, number, value.c_str());
  case REG_BINARY: {
    std::vector<BYTE> data;
    if (!ParseHex(value, &data)) return E_INVALIDARG;
    return KySetMetricBinary(h, number, data.data(), (LONG)data.size());
  }
  default: {
    std::vector<char> data = MultiFromBars(value);
    return KySetMetricMultiString(h, number, data.data(), (LONG)data.size());
  }
  }
}

int Run(const Target &t, const std::string &verb, LONG number, const std::string &value) {
  HKYMETRIC h = nullptr;
  HRESULT hr = KyMetric_Open(&h, t.product.c_str(), t.version, t.section.empty() ? nullptr : t.section.c_str());
  if (FAILED(hr)) {
    fprintf(stderr, "kytool settings: cannot open the settings (0x%08lX)\n", (unsigned long)hr);
    return 1;
  }
  int rc = 0;
  if (verb == "get") {
    rc = Get(h, number, t.type);
  } else if (verb == "set") {
    hr = Set(h, number, t.type, value);
    printf("set %ld: 0x%08lX\n", (long)number, (unsigned long)hr);
    rc = SUCCEEDED(hr) ? 0 : 1;
  } else {
    hr = KyDeleteMetric(h, number, t.type);
    printf("delete %ld: 0x%08lX\n", (long)number, (unsigned long)hr);
    rc = hr == S_OK ? 0 : 1;
  }
  KyMetric_Close(h);
  return rc;
}

int Settings(const kytool::Args &input) {
  kytool::Args args = input;
  Target t;
  t.product = kytool::TakeOption(args, "--product", t.product);
  std::string version = kytool::TakeOption(args, "--version", "");
  if (!version.empty()) t.version = (DWORD)strtoul(version.c_str(), nullptr, 0);
  t.section = kytool::TakeOption(args, "--section", t.section);
  std::string type = kytool::TakeOption(args, "--type", "dword");
  bool ok = ParseType(type, &t.type) && args.size() >= 2;
  const std::string verb = ok ? args[0] : "";
  ok = ok && (verb == "get" || verb == "delete" ? args.size() == 2 : verb == "set" && args.size() == 3);
  if (!ok) {
    fprintf(stderr, "usage: kytool settings %s\n", kUsage);
    return 2;
  }
  LONG number = strtol(args[1].c_str(), nullptr, 10);
  return Run(t, verb, number, verb == "set" ? args[2] : "");
}

// Writes one value of each type under a demonstration section, reads them back, then
// removes the section again.
int Demo(const kytool::Args &) {
  Target t;
  t.section = "KytoolDemo";
  struct Step {
    DWORD type;
    LONG number;
    const char *value;
  } steps[] = {{REG_DWORD, 12, "0x2A"}, {REG_DWORD, -12, "7"}, {REG_SZ, 3, "hello settings"},
               {REG_BINARY, 4, "DEADBEEF01"}, {REG_MULTI_SZ, 5, "first|second|third"}};
  int rc = 0;
  for (const Step &s : steps) {
    t.type = s.type;
    printf("set %ld to %s\n", (long)s.number, s.value);
    rc |= Run(t, "set", s.number, s.value);
    rc |= Run(t, "get", s.number, "");
    rc |= Run(t, "delete", s.number, "");
  }
  HRESULT hr = KyMetric_DeleteKey(t.product.c_str(), t.version, t.section.c_str());
  printf("removed section %s: 0x%08lX\n", t.section.c_str(), (unsigned long)hr);
  return rc;
}

} // namespace

KYTOOL_COMMAND("settings", kUsage, "read, write or delete a numbered setting in the registry", Settings, Demo, 20);
