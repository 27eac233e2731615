#pragma once

#include "Command.h"

// `marlune health`: the engine's health record as one line of JSON.
Command healthCommand();
