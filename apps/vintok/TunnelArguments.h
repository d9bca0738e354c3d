// The options that say how a call reaches its party.
#ifndef VINTOK_APP_TUNNELARGUMENTS_H
#define VINTOK_APP_TUNNELARGUMENTS_H

#include "Options.h"

namespace CLI {
class App;
}

namespace app {

void addTunnelOptions(CLI::App &app, Options &options);
// Of a host, which offers itself at a multiplexer.
void addOfferOptions(CLI::App &app, Options &options);

// What cannot be seen before all options are known. Takes the credentials from the environment
// where the command line gives none. False: `text` says what is wrong.
bool finishTunnelOptions(Options &options, std::string &text);
bool finishOfferOptions(Options &options, std::string &text);

} // namespace app

#endif
