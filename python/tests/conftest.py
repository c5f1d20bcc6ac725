import os
import pathlib

import pytest


@pytest.fixture
def examples():
    """The project's examples/ directory."""
    return pathlib.Path(os.environ.get("QZST_EXAMPLES", pathlib.Path(__file__).resolve().parents[2] / "examples"))
