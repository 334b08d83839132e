"""The committed pictures are what their sources draw."""

import subprocess
from pathlib import Path

from PIL import Image, ImageChops

RESOURCES = Path(__file__).resolve().parents[2] / "resources"
DRAWN = [
    "backgrounds/Fundo01.png",
    "backgrounds/Fundo02.png",
    "help/pt_BR/images/fluxo-uso.png",
    "help/pt_BR/images/gerenciador-pacotes.png",
    "icons/Tessarine.ico",
    "icons/hicolor/scalable/apps/tessarine-config.svg",
    *(f"icons/hicolor/{size}x{size}/apps/tessarine-config.png" for size in (16, 32, 48, 64, 128, 256)),
]


# What the committed pictures were drawn with. Another version blends colours a little differently.
DRAWN_WITH = "rsvg-convert version 2.54."
TOLERANCE_OF_OTHERS = 24  # of the 255 steps of a channel, in any pixel


def has_committed_renderer():
    return subprocess.check_output(["rsvg-convert", "--version"], text=True).startswith(DRAWN_WITH)


def looks_like(name, drawn):
    """Nobody sees that they differ. Only the biggest picture of an icon is looked at."""
    with Image.open(RESOURCES / name) as committed, Image.open(drawn) as other:
        difference = ImageChops.difference(committed.convert("RGBA"), other.convert("RGBA"))
    return max(most for _, most in difference.getextrema()) <= TOLERANCE_OF_OTHERS


def test_rendering_gives_the_committed_pictures_byte_for_byte(tmp_path):
    subprocess.run([RESOURCES / "artwork/render", tmp_path], check=True)
    drawn = sorted(str(path.relative_to(tmp_path)) for path in tmp_path.rglob("*") if path.is_file())
    assert drawn == sorted(DRAWN)
    differing = [name for name in DRAWN if (tmp_path / name).read_bytes() != (RESOURCES / name).read_bytes()]
    if not has_committed_renderer():
        differing = [name for name in differing if not looks_like(name, tmp_path / name)]
    assert differing == []


def test_every_picture_of_the_desktop_theme_has_the_size_of_its_directory():
    for size in (16, 32, 48, 64, 128, 256):
        picture = (RESOURCES / f"icons/hicolor/{size}x{size}/apps/tessarine-config.png").read_bytes()
        assert picture[16:26] == size.to_bytes(4, "big") * 2 + bytes([8, 6])
