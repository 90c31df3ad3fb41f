"""Plays a scenario for people: its steps on the timeline, with pauses, and pictures if wanted."""

from typing import TYPE_CHECKING

from simulation import gateway
from simulation.demo.cases import CASES, END
from simulation.demo.timeline import Timeline
from simulation.handle_error import HandleError
from simulation.handles import Handles
from simulation.scenario import NotObserved, Scenario, Scene
from simulation.station import Station

if TYPE_CHECKING:
    from simulation.demo.pictures import Pictures

INCIDENT = "incident"  # the demonstration


def play_all(
    scenario: Scenario,
    scene: Scene,
    timeline: Timeline,
    pause: float,
    pictures: "Pictures | None",
) -> bool:
    """Whether all of it was observed. Pictures are also taken of the special cases."""
    if not play(scenario, scene, timeline, pause, pictures):
        return False
    if pictures and scenario.title == INCIDENT:
        return play_cases(scene.station, timeline, pictures)
    return True


def play(
    scenario: Scenario,
    scene: Scene,
    timeline: Timeline,
    pause: float,
    pictures: "Pictures | None",
) -> bool:
    """Whether all of it was observed; what was not is told."""

    def show_step(words: str, is_untold: bool) -> None:
        timeline.show_news()
        if is_untold:
            timeline.say("station", words)
        if pictures:
            pictures.take(words)
        # Only for the viewer: the step has already been observed.
        scene.pause(pause)

    scene.after_step = show_step
    scene.wait_for_start()
    try:
        scenario.play(scene)
    except (NotObserved, HandleError, OSError) as error:
        timeline.say("problem", f"not observed: {error}")
        return False
    finally:
        timeline.show_news()
    title = "the incident" if scenario.title == INCIDENT else f"the scenario {scenario.title}"
    timeline.say("station", f"{title} was observed, all {scene.steps} steps of it")
    return True


def play_cases(station: Station, timeline: Timeline, pictures: "Pictures") -> bool:
    """Taking a picture is what observes a case: it waits until the page has drawn it."""
    for case in CASES:
        timeline.say("gateway", "sends: " + case.caption)
        try:
            for message in case.messages:
                gateway.deliver(station, message)
            pictures.take(case.caption)
            gateway.deliver(station, END)
            # The page would take the next one for more news of this one.
            pictures.wait_until_drawn()
        except OSError as error:  # includes TimeoutError
            timeline.say("problem", f"not observed: {case.caption} ({error})")
            return False
        timeline.show_news()
    timeline.say("station", f"{len(CASES)} special cases have been shown, too")
    return True


def wait_for_end(handles: Handles, timeline: Timeline) -> int:
    status = handles.unit.wait_until_service_ends()
    timeline.say("problem", f"the service has ended with status {status}")
    return 1
