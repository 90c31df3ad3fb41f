"""A gateway that dies: the unit resets itself, and is there when the gateway comes back.

The unit kicks its watchdog 900 times after the last message, once a second, and no more; the board
resets 15 seconds later.

Shortened: the unit's time runs 300 times as fast, so that its quarter of an hour lasts 3 seconds (more on a
busy machine), and
the watchdog's 15 seconds last 3.
"""

from simulation import gateway
from simulation.scenario import Scene, Setup

SETUP = Setup(tv_power="on", tv_input="1.0.0.0", speed=300)
BUDGET = 900  # kicks


def play(scene: Scene) -> None:
    scene.expect_document(alert_area="10.87.33.50")
    before = scene.view.kicks()
    scene.send("roll call", gateway.roll_call(), is_datagram=True)
    scene.expect_records(2, 39, 47, since=1)
    scene.expect("a while passes", lambda: scene.view.kicks() >= before + 100)
    before = scene.view.kicks()
    scene.send("roll call, the last one", gateway.roll_call(), is_datagram=True)
    scene.expect_records(2, 39, 47, since=4)
    after = scene.view.kicks()
    scene.expect_reset()
    scene.expect(
        f"the watchdog was kicked {BUDGET} times after the last message, and no more",
        # One message lies between the two.
        lambda: scene.kicks_before_reset - after <= BUDGET <= scene.kicks_before_reset - before,
    )
    scene.expect("the unit has announced itself", lambda: scene.records().count(2) == 4)
    scene.send("the gateway is back: roll call", gateway.roll_call(), is_datagram=True)
    scene.expect_records(2, 39, 47, since=8)
