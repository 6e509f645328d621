"""Plots lit area and exposure of a slice file's layers against height: height_plot.py FILE PLOT.png."""

import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

import vndlp


def main(path: str, plot_path: str) -> None:
    with vndlp.open(path) as f:
        facts = [f.layers.facts(i) for i in range(len(f.layers))]
        bottom = f.settings.get("bottom_layers", 0)

        def exposure(i: int) -> float:
            of_file = f.settings["bottom_exposure_s" if i < bottom else "exposure_s"]
            return f.layers.settings(i).get("exposure_s", of_file)

        exposures = [exposure(i) for i in range(len(f.layers))]
    heights = [fact.z_mm for fact in facts]
    figure, (left, right) = plt.subplots(1, 2, sharey=True, figsize=(8, 5))
    left.plot([fact.area_mm2 for fact in facts], heights)
    left.set(xlabel="lit area, mm2", ylabel="height, mm")
    right.step(exposures, heights, where="post")
    right.set(xlabel="exposure, s")
    figure.tight_layout()
    figure.savefig(plot_path)


if __name__ == "__main__":
    main(*sys.argv[1:])
