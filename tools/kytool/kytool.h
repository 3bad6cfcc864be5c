// kytool: the library's command-line front end. Each subcommand lives in its own file and
// registers itself with KYTOOL_COMMAND; main() dispatches on the first argument.
#pragma once

#include <string>
#include <vector>

namespace kytool {

using Args = std::vector<std::string>;
// A subcommand gets the arguments after its name and returns the process exit code.
using CommandFn = int (*)(const Args &args);

struct Command {
  const char *name;
  const char *usage;   // one line: arguments
  const char *summary; // one line: what it does
  CommandFn run;
  CommandFn demo;      // what `kytool` with no arguments shows for this command (may be null)
  int order;           // position in the help and the demonstration
};

void Register(const Command &c);
const std::vector<Command> &Commands();

// Folder of the bundled sample data (samples/ beside the tool's source tree, or the
// TELLAROK_SAMPLES environment value).
std::string SamplePath(const std::string &name);

// Reads "--name value" options out of args (removing them); returns the fallback if absent.
std::string TakeOption(Args &args, const std::string &name, const std::string &fallback);
bool TakeFlag(Args &args, const std::string &name);

// "0xCODE: text" of a status, with the error handler's text where the library has one.
std::string StatusText(long status);

struct Registrar {
  explicit Registrar(const Command &c) { Register(c); }
};

} // namespace kytool

#define KYTOOL_CONCAT2(a, b) a##b
#define KYTOOL_CONCAT(a, b) KYTOOL_CONCAT2(a, b)
#define KYTOOL_COMMAND(...) \
  static ::kytool::Registrar KYTOOL_CONCAT(kytool_registrar_, __LINE__)(::kytool::Command{__VA_ARGS__})
