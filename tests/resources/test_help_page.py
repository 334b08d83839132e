"""The help page: valid, in order, and complete without anything from outside the program."""

import re
import subprocess
import xml.etree.ElementTree as ElementTree
from html.parser import HTMLParser
from pathlib import Path

import pytest

RESOURCES = Path(__file__).resolve().parents[2] / "resources"
PAGE = RESOURCES / "help/pt_BR/index.html"
SECTIONS = [
    "Conceitos principais",
    "Tessarine - Gerenciador",
    "Fluxo básico no Tessarine",
    "Menus principais",
    "Containers e cofres",
    "Pastas e arquivos protegidos",
    "Importar arquivos",
    "Abrir arquivos protegidos",
    "Exportar arquivos",
    "Excluir e compactar",
    "Backup e restauração",
    "Barra de status e indicadores",
    "Boas práticas",
]
HEADINGS = ("h1", "h2", "h3", "h4", "h5", "h6")


class Page(HTMLParser):
    """What the tests ask of the page: its elements in order, each with its attributes and text."""

    def __init__(self, text):
        super().__init__()
        self.elements = []
        self.open = []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        element = {"tag": tag, "text": "", **dict(attrs)}
        self.elements.append(element)
        if tag not in ("meta", "img", "br"):
            self.open.append(element)

    def handle_endtag(self, tag):
        assert self.open.pop()["tag"] == tag

    def handle_data(self, data):
        for element in self.open:
            element["text"] += data

    def all(self, *tags):
        return [element for element in self.elements if element["tag"] in tags]

    def section(self, title):
        """The text of what stands between a heading and the next one of the same rank."""
        titles = [(e["tag"], e["text"]) for e in self.elements]
        start = next(i for i, (tag, text) in enumerate(titles) if tag in HEADINGS and text == title)
        rank = titles[start][0]
        stops = (i for i in range(start + 1, len(titles)) if titles[i][0] in HEADINGS and titles[i][0] <= rank)
        return self.elements[start + 1:next(stops, len(titles))]


@pytest.fixture(scope="module")
def source():
    return PAGE.read_text(encoding="utf-8")


@pytest.fixture(scope="module")
def page(source):
    return Page(source)


def text_of(elements):
    return " ".join(" ".join(e["text"] for e in elements if e["tag"] in ("p", "li", "td", "div")).split())


def test_a_checker_finds_nothing_to_say():
    checked = subprocess.run(["tidy", "-quiet", "-errors", "-utf8", PAGE], capture_output=True, text=True)
    assert (checked.returncode, checked.stderr) == (0, "")


def test_title_and_language_are_said(page):
    assert [e["text"] for e in page.all("title")] == ["Ajuda do Tessarine"]
    assert page.all("html")[0]["lang"] == "pt-BR"
    assert page.all("meta")[0]["charset"] == "utf-8"


def test_one_style_block_sets_the_look(page, source):
    assert len(page.all("style")) == 1 and "style=" not in source
    rules = dict(re.findall(r"^([^{\n]+?) \{ (.*) \}$", page.all("style")[0]["text"], re.MULTILINE))
    for declaration in ("color: #111827;", "font-size: 13px;", "line-height: 1.48;", "margin: 18px;"):
        assert declaration in rules["body"]
    assert "color: #0B4F8A;" in rules["h1, h2, h3"]
    assert ".help-image" in rules and ".lead" in rules
    for box in (".note", ".warning", ".success"):
        assert re.search(r"border-left: 4px solid #[0-9a-fA-F]{6};", rules[box])


def test_every_class_of_the_style_block_is_used(page, source):
    used = {name for e in page.elements for name in e.get("class", "").split()}
    assert used == set(re.findall(r"^\.([a-z-]+)", page.all("style")[0]["text"], re.MULTILINE))


def test_sections_stand_in_order(page):
    assert len(page.all("h1")) == 1
    assert [e["text"] for e in page.all("h2")] == SECTIONS
    manager = [e["text"] for e in page.section("Tessarine - Gerenciador") if e["tag"] == "h3"]
    assert manager == ["Preparar unidade USB", "Atualizar unidade USB preparada"]


def test_no_rank_of_heading_is_skipped(page):
    ranks = [int(e["tag"][1]) for e in page.all(*HEADINGS)]
    assert ranks[0] == 1
    assert all(after <= before + 1 for before, after in zip(ranks, ranks[1:]))


@pytest.mark.parametrize("title", SECTIONS)
def test_every_section_says_something(page, title):
    assert len(text_of(page.section(title))) > 250


def test_pictures_are_resources_of_the_program(page):
    entries = {e.text for e in ElementTree.parse(RESOURCES / "resources.qrc").iter("file")}
    pictures = [e["src"] for e in page.all("img")]
    assert pictures == [
        "qrc:/help/pt_BR/images/fluxo-uso.png",
        "qrc:/help/pt_BR/images/gerenciador-pacotes.png",
    ]
    assert {picture.removeprefix("qrc:/") for picture in pictures} <= entries


def test_pictures_are_described_in_words(page):
    assert all(len(e["alt"]) > 60 for e in page.all("img"))


def test_each_picture_stands_in_its_section(page):
    lead = page.elements[:page.elements.index(page.all("h2")[0])]
    assert [e["src"][-13:] for e in lead if e["tag"] == "img"] == ["fluxo-uso.png"]
    manager = page.section("Tessarine - Gerenciador")
    assert [e["src"][-23:] for e in manager if e["tag"] == "img"] == ["gerenciador-pacotes.png"]


def test_nothing_is_fetched_from_elsewhere(source):
    assert "http:" not in source and "https:" not in source
    assert "<script" not in source and "<link" not in source


def test_terms_are_explained_in_a_table(page):
    terms = [e["text"] for e in page.section("Conceitos principais") if e["tag"] == "strong"]
    assert terms == ["Unidade preparada", "Container", "Cofre bloqueado", "Cofre desbloqueado"]


def test_preparing_names_the_controls_in_the_order_of_their_use(page):
    section = page.section("Preparar unidade USB")
    steps = " ".join(e["text"] for e in section if e["tag"] == "li")
    positions = [steps.index(control) for control in ("Gerenciador", "Atualizar lista", "Preparar unidade USB")]
    assert positions == sorted(positions)
    assert "não é formatada" in text_of(section)
    assert "podem ser substituídos" in text_of(section)


def test_updating_tells_what_happens_and_warns(page):
    section = page.section("Atualizar unidade USB preparada")
    for words in ("Verificar atualizações", "tamanho", "SHA-256", "extrai os arquivos", "substitui os pacotes"):
        assert words in text_of(section)
    warning = text_of([e for e in section if e.get("class") == "warning"])
    assert "feche o Tessarine antes de atualizar" in warning
    assert "não a remova durante a preparação ou a atualização" in warning


def test_backup_and_good_practice_are_told(page):
    assert "tessarine.tsrn" in page.all("p")[0]["text"]
    assert "raiz da unidade preparada" in text_of(page.section("Containers e cofres"))
    assert "cópia do arquivo .tsrn" in text_of(page.section("Backup e restauração"))
    assert "verificar se há atualizações" in text_of(page.section("Boas práticas"))


def test_encryption_has_one_word(source):
    assert not re.findall(r"\w*cifr\w*", source)


def test_full_drive_and_small_drive_are_two_cases(page):
    advice = [e["text"] for e in page.section("Preparar unidade USB") if e["tag"] == "li"]
    full, = (text for text in advice if "espaço livre não basta" in text)
    small, = (text for text in advice if "um quarto" in text)
    assert "libere espaço" in full and "unidade maior" not in full
    assert "use uma unidade maior" in small


def test_fat_drives_are_no_good_for_linux_and_formatting_erases(page):
    preparing = page.section("Preparar unidade USB")
    assert "Tessarine não inicia" in text_of(preparing) and "exFAT ou ext4" in text_of(preparing)
    assert "apaga tudo" in text_of([e for e in preparing if e.get("class") == "warning"])
    assert "código de saída 126" in text_of(page.section("Fluxo básico no Tessarine"))
