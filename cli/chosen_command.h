// How the words of a command line choose a command.
#pragma once

#include <CLI/CLI.hpp>

#include "cli/session.h"

namespace cli {

// *chosen becomes `run` with *request if `app` is on the command line. Both must remain live while `app` is.
template <typename Request>
void on_choice(CLI::App* app, ChosenCommand* chosen, void (*run)(const Session&, const Request&),
               const Request* request) {
  app->callback([=] { *chosen = [=](const Session& session) { run(session, *request); }; });
}

}  // namespace cli
