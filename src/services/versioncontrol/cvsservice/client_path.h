// ClientPath: a path as a client sent it, turned into the path this process uses.
#pragma once

class STPSpecClass;

// Through the router client, with `connection` as the client's connection: an absolute path is
// copied; a relative one is joined to the client's "cwd" and normalised; without a known "cwd"
// (or a connection the router client knows) the path is copied. Null when the router client is
// gone (the process is shutting down) or `path` is null. A new string for gen_free. May wait
// for the router when the client's "cwd" is not cached yet.
char* ClientPath(STPSpecClass* connection, const char* path);
