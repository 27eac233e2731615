"""Launch compatibility for `python -m uvicorn app.main:app … --timeout-graceful-shutdown N`.

Run from the engine folder, `python -m uvicorn` finds this package first. It loads the installed
uvicorn in its place and leaves everything to it, except for one thing: when that uvicorn predates
the --timeout-graceful-shutdown option (Debian 12 ships uvicorn 0.17), the option is taken off the
command line and applied here, by a server that closes the connections still open (event streams)
once the timeout has passed, so that shutdown neither hangs nor skips the application's own.
"""

import asyncio
import inspect
import os
import sys
from importlib.machinery import PathFinder
from importlib.util import module_from_spec

PACKAGE = "uvicorn"
OPTION = "--timeout-graceful-shutdown"
_ENGINE_DIR = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def _load_installed():
    search = [entry for entry in sys.path
              if os.path.abspath(entry or os.curdir) != _ENGINE_DIR]
    spec = PathFinder.find_spec(PACKAGE, search)
    if spec is None:
        raise ImportError("uvicorn is not installed")
    module = module_from_spec(spec)
    sys.modules[PACKAGE] = module
    try:
        spec.loader.exec_module(module)
    except BaseException:
        del sys.modules[PACKAGE]
        raise
    return module


def split_option(args):
    """(the option's value or None, the arguments without it); takes `--opt N` and `--opt=N`."""
    value, rest, index = None, [], 0
    while index < len(args):
        argument = args[index]
        if argument == OPTION and index + 1 < len(args):
            value = args[index + 1]
            index += 2
            continue
        if argument.startswith(OPTION + "="):
            value = argument[len(OPTION) + 1:]
        else:
            rest.append(argument)
        index += 1
    return value, rest


def supports_option(installed) -> bool:
    return "timeout_graceful_shutdown" in inspect.signature(installed.Config.__init__).parameters


def graceful_server(base, timeout: float):
    class GracefulServer(base):
        async def shutdown(self, sockets=None):
            loop = asyncio.get_running_loop()
            timers = [loop.call_later(timeout, self.close_connections),
                      loop.call_later(timeout + 1.0, self.cancel_tasks)]
            try:
                await super().shutdown(sockets=sockets)
            finally:
                for timer in timers:
                    timer.cancel()

        def close_connections(self):
            # A closed transport reads as a client disconnect, which ends streaming responses.
            for connection in list(self.server_state.connections):
                transport = getattr(connection, "transport", None)
                if transport is not None:
                    transport.close()

        def cancel_tasks(self):
            for task in list(self.server_state.tasks):
                task.cancel()

    return GracefulServer


_installed = _load_installed()
_command = _installed.main


def main(args=None, **kwargs):
    arguments = list(sys.argv[1:] if args is None else args)
    value, rest = split_option(arguments)
    if value is None or supports_option(_installed):
        return _command.main(args=arguments, **kwargs)
    try:
        timeout = float(value)
    except ValueError:
        sys.stderr.write(f"Error: Invalid value for '{OPTION}': '{value}' is not a number.\n")
        raise SystemExit(2)
    launcher = sys.modules[PACKAGE + ".main"]
    launcher.Server = graceful_server(_installed.Server, timeout)
    return _command.main(args=rest, **kwargs)


_installed.main = main
