"""Commands machines that run under `torvex serve`. It needs only the standard library.

    import torvex

    machine = torvex.connect("humanoid")
    machine.send("head_yaw", [(0.5, 0.3), (1.0, 0.0)])
    print(machine["head_yaw/Value"])

Times are seconds from now, values are in the unit of the actuator (rad, m, or its own). If the
machine refuses a request, `Refused` is raised, with the reason.
"""

from .commander import Commander
from .errors import ConnectionLost, NotRunning, Refused, TorvexError
from .events import Event, Events
from .machine import Axis, Machine, Outcome, Taken, connect

__all__ = ["Axis", "Commander", "ConnectionLost", "Event", "Events", "Machine", "NotRunning",
           "Outcome", "Refused", "Taken", "TorvexError", "connect"]
