"""A television that falls silent while it sleeps.

The unit waits for it, and meanwhile kicks the watchdog no more: 15 seconds later the board resets.
After that it knows nothing of the television, and shows alerts without it.

Shortened: the unit's time runs ten times as fast, so that the 15 seconds last 3.
"""

from simulation import gateway
from simulation.scenario import Scene, Setup

SETUP = Setup(tv_power="in standby", tv_input="3.0.0.0", speed=10)


def play(scene: Scene) -> None:
    scene.expect(
        "the unit knows that the television sleeps",
        lambda: "TV is in standby mode." in scene.service_output(),
    )
    scene.do("the television ignores everything", scene.tv.be_deaf)
    scene.send(
        "display alert", gateway.display_alert("STRUCTURE FIRE"), lambda: is_calling(scene, times=3)
    )
    scene.stays(
        "the alert waits for the television",
        lambda: not scene.has_document(alert_area="STRUCTURE FIRE"),
        seconds=0.5,
    )
    scene.expect_reset()
    scene.expect_document(alert_area="10.87.33.50")
    scene.send("the same alert", gateway.display_alert("STRUCTURE FIRE"))
    scene.expect_document(alert_area="STRUCTURE FIRE")
    scene.expect_tv("in standby", "3.0.0.0")
    scene.expect(
        "the service kicks the watchdog during this alert", lambda: is_kicking(scene), deadline=10
    )


def is_calling(scene: Scene, times: int) -> bool:
    return scene.service_output().count("TV on standby, sending ImageViewOn") >= times


def is_kicking(scene: Scene) -> bool:
    before = scene.view.kicks()
    scene.pause(0.3)
    return scene.view.kicks() > before
