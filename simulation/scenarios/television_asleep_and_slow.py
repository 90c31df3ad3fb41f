"""A television that sleeps, takes its time to wake up, and answers late.

The alert waits until it answers that it is waking up. Afterward it goes back to sleep, on the input that
was watched before. Nothing is shortened.
"""

from simulation import gateway
from simulation.scenario import Scene, Setup

SETUP = Setup(tv_power="on", tv_input="2.0.0.0")


def play(scene: Scene) -> None:
    scene.expect_tv("on", "1.0.0.0")
    scene.do("somebody watches input 3.0.0.0", lambda: scene.tv.choose_input("3.0.0.0"))
    scene.do("and goes to bed", scene.tv.turn_off, lambda: knows_standby(scene))
    scene.do(
        "the television answers half a second late, and needs 2.5 s to wake up",
        lambda: scene.tv.be_slow(0.5, 2.5),
    )
    scene.send(
        "display alert, turnout 60 s",
        gateway.display_alert("STRUCTURE FIRE", turnout=60),
        lambda: scene.tv.power == "waking",
    )
    scene.stays(
        "the alert waits for its answer",
        lambda: not scene.has_document(alert_area="STRUCTURE FIRE"),
        seconds=1.0,
    )
    scene.expect_document(alert_area="STRUCTURE FIRE")
    scene.expect_tv("on", "1.0.0.0")
    scene.send("end of the alert", gateway.display_alert(""))
    scene.expect_tv("in standby", "3.0.0.0")
    scene.expect_document(alert_area="")


def knows_standby(scene: Scene) -> bool:
    return "TV is in standby mode." in scene.service_output()
