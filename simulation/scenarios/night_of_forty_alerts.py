"""A night of forty alerts: for each the television is woken, and it goes back to sleep afterward.

Every alert has a number, so that none can be taken for another; every tenth is stopped and gets a
map first.

Shortened: the alerts follow each other at once, and the unit's time runs 60 times as fast, because it
waits two seconds for each waking, and up to five until it notices that the television sleeps.
"""

from simulation import gateway
from simulation.gateway import Unit
from simulation.scenario import Scene, Setup

SETUP = Setup(tv_power="on", tv_input="3.0.0.0", tv_wake_delay=0.02, speed=60)
ALERTS = 40
MAP = "http://10.87.33.20/map.svg"


def play(scene: Scene) -> None:
    scene.expect_tv("on", "1.0.0.0")
    scene.do("somebody watches input 3.0.0.0", lambda: scene.tv.choose_input("3.0.0.0"))
    scene.do("and goes to bed", scene.tv.turn_off, lambda: known_standbys(scene) > 0)
    for number in range(1, ALERTS + 1):
        alert(scene, number)
    scene.expect(
        "the log has all forty alerts",
        lambda: all(f"INCIDENT {n}\\n" in alert_log(scene) for n in range(1, ALERTS + 1)),
    )
    scene.expect("the service has never been away", lambda: scene.records() == [2])


def alert(scene: Scene, number: int) -> None:
    units = {0: Unit(f"E{number}", number % 16 + 1)}
    text = f"INCIDENT {number}\nMAIN ST"
    message = gateway.detail_alert(text, units, turnout_end=120, turnout_zero=60)
    scene.send(f"alert {number}", message)
    scene.expect_document(
        alert_area=text,
        alert_type="hdtv_alert",
        units=[{"unit": f"E{number}", "color": str(number % 16 + 1)}],
    )
    scene.expect_tv("on", "1.0.0.0")
    if number % 10 == 0:
        scene.send("map address", gateway.set_map_address(MAP))
        scene.expect_document(map_url=MAP, alert_area=text)
        scene.send("stop turnout", gateway.stop_turnout())
        scene.expect_document(alert_type="stop_turnout")
    scene.send(f"end of alert {number}", gateway.detail_alert(""))
    answers = known_standbys(scene)
    scene.expect_tv("in standby", "3.0.0.0")
    scene.expect("the unit knows it", lambda: known_standbys(scene) > answers)
    scene.expect_document(alert_area="", alert_time="0", units=[])


def known_standbys(scene: Scene) -> int:
    """How often the television has told the unit, which asks every five seconds."""
    return scene.service_output().count("TV is in standby mode.")


def alert_log(scene: Scene) -> str:
    return scene.station.path("/tmp/alerts.log").read_text()
