#pragma once

namespace vintrel {

/// Runs the service: logging, dispatcher, client machine, dispatch loop. Returns the exit status
/// of the process: 0 after a normal end and after a start that failed, 1 after an exception out of
/// dispatching. An exception from the construction or the start of the client passes through.
///
/// The one argument that counts is "-reset", and only as the very last one: it requests a factory
/// reset.
int RunProgram(int argc, const char* const* argv);

}  // namespace vintrel
