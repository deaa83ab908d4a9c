// The cvsservice process: its entry and the steps of its start-up.
#pragma once

// True when an argument from index 0 to argc - 2 is "-connect_servicerouter",
// "-sr_connect_servicerouter_host" or "-sr_connect_servicerouter_port". The last argument is
// not looked at, since each of these needs a value behind it.
bool hasRouterConnectOption(int argc, char** argv);

// The whole life of the process; returns its exit code (0 after the event loop, 1 when it may
// not or cannot run).
int cvsservice_main(int argc, char** argv);

// Loads the configuration through the WhiteBoard service; the process goes on with compiled
// defaults when that fails.
bool loadDefaultConfig();

// Creates the factories of "VersionControl.CVS" and "VC_CheckoutInfo.CVS" and registers each
// with the router. Returns true whatever the registrations returned.
bool setupCVSServer();

// The exit function "a server object has been created since start".
using ExitConditionFunc = bool (*)();
ExitConditionFunc serviceCreatedExitFunc();
