// kytool entry point: `kytool` alone demonstrates every command on the bundled data;
// `kytool COMMAND ...` runs one; `kytool help` lists them.
#include "kytool.h"

#include <windows.h>
#include <algorithm>
#include <stdio.h>
#include <stdlib.h>

namespace kytool {

static std::vector<Command> &Table() {
  static std::vector<Command> t;
  return t;
}

void Register(const Command &c) {
  auto &t = Table();
  t.push_back(c);
  std::stable_sort(t.begin(), t.end(), [](const Command &a, const Command &b) { return a.order < b.order; });
}

const std::vector<Command> &Commands() { return Table(); }

std::string SamplePath(const std::string &name) {
  const char *env = getenv("TELLAROK_SAMPLES");
  std::string dir = env ? env : "samples";
  return name.empty() ? dir : dir + "/" + name;
}

std::string TakeOption(Args &args, const std::string &name, const std::string &fallback) {
  for (size_t i = 0; i + 1 < args.size(); ++i) {
    if (args[i] == name) {
      std::string v = args[i + 1];
      args.erase(args.begin() + i, args.begin() + i + 2);
      return v;
    }
  }
  return fallback;
}

bool TakeFlag(Args &args, const std::string &name) {
  auto it = std::find(args.begin(), args.end(), name);
  if (it == args.end()) return false;
  args.erase(it);
  return true;
}

static void Help() {
  printf("kytool - command-line front end of the Tellaro run-time kernel (tellarok.dll)\n\n");
  printf("usage: kytool [COMMAND [ARGS...]]\n  (no command: demonstrate every command on the bundled sample data)\n\n");
  for (const Command &c : Commands()) printf("  %-10s %s\n  %-10s   %s\n", c.name, c.usage, "", c.summary);
}

} // namespace kytool

int main(int argc, char **argv) {
  using namespace kytool;
  setvbuf(stdout, nullptr, _IONBF, 0);
  if (argc < 2) {
    int rc = 0;
    for (const Command &c : Commands()) {
      if (!c.demo) continue;
      printf("==== kytool %s\n", c.name);
      if (c.demo(Args{}) != 0) rc = 1;
      printf("\n");
    }
    return rc;
  }
  std::string name = argv[1];
  if (name == "help" || name == "--help" || name == "-h") {
    Help();
    return 0;
  }
  for (const Command &c : Commands()) {
    if (name == c.name) return c.run(Args(argv + 2, argv + argc));
  }
  fprintf(stderr, "kytool: unknown command '%s' (try 'kytool help')\n", name.c_str());
  return 2;
}
