// The options of a meeting that has several hosts.
#ifndef VINTOK_APP_CLUSTERARGUMENTS_H
#define VINTOK_APP_CLUSTERARGUMENTS_H

#include "Options.h"

namespace CLI {
class App;
}

namespace app {

void addClusterOptions(CLI::App &app, Options &options);
// Of a host, which links itself to the others.
void addLinkOptions(CLI::App &app, Options &options);

// What cannot be seen before all options are known. False: `text` says what is wrong.
bool finishClusterOptions(Options &options, std::string &text);

} // namespace app

#endif
