// DefaultConfig: the frame through which a part of the program declares its configuration keys
// with their defaults, and the run that finishes every declared frame once.
#pragma once

// Made during static initialisation (one static instance per part). Until runDefaultConfigs
// has run, a new frame waits in the process-wide config list; afterwards it finishes at once.
// The destructor takes it out of the list.
class DefaultConfig {
public:
    explicit DefaultConfig(const char* group);
    virtual ~DefaultConfig();
    DefaultConfig(const DefaultConfig&) = delete;
    DefaultConfig& operator=(const DefaultConfig&) = delete;

    // Nothing here; a part adds what must happen once the configuration is set up.
    virtual void finishDefaults();

    const char* getGroup() const { return group; }

protected:
    char* group; // owned copy
};

// Once per process: finishDefaults of every waiting frame, in the order they were made.
void runDefaultConfigs();
