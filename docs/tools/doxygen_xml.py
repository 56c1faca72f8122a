"""What the reference's XML says of each function of the public headers."""
import dataclasses
import pathlib
import re
import xml.etree.ElementTree as ElementTree

TAGS = ("Blocking", "Locks", "Context")


@dataclasses.dataclass
class Function:
    name: str
    scope: str  # class, or "" for a function at file level
    header: str
    line: int
    returns: str
    arguments: list  # (type, name) pairs
    brief: str
    paragraphs: list  # of the description
    parameters: list  # (names, text) pairs
    results: list  # (value, text) pairs
    returned: str
    tags: dict  # by name in TAGS


def text_of(element, skip=()):
    """The text of an element and all in it but what has one of the tags to skip, white space made one blank."""
    def pieces(node):
        yield node.text or ""
        for child in node:
            if child.tag not in skip:
                yield from pieces(child)
            yield child.tail or ""
    return re.sub(r"\s+", " ", "".join(pieces(element))).strip()


def listed(element, kind):
    for part in element.iter("parameterlist"):
        if part.get("kind") == kind:
            for item in part.iter("parameteritem"):
                names = ", ".join(text_of(name) for name in item.iter("parametername"))
                yield names, text_of(item.find("parameterdescription"))


def described(detailed):
    """The paragraphs that are neither lists of parameters nor tags."""
    for paragraph in detailed.findall("para"):
        text = text_of(paragraph, skip=("parameterlist", "simplesect", "itemizedlist"))
        if text:
            yield text
        for item in paragraph.iter("listitem"):
            yield text_of(item)


def function_of(member, scope):
    detailed = member.find("detaileddescription")
    tags, returned = {}, ""
    for section in detailed.iter("simplesect"):
        if section.get("kind") == "par" and text_of(section.find("title")) in TAGS:
            tags[text_of(section.find("title"))] = text_of(section, skip=("title",))
        elif section.get("kind") == "return":
            returned = text_of(section)
    arguments = []
    for parameter in member.findall("param"):
        kind = text_of(parameter.find("type"))
        name = parameter.find("declname")
        array = parameter.find("array")
        arguments.append((kind, (text_of(name) if name is not None else "") +
                          (text_of(array) if array is not None else "")))
    location = member.find("location")
    return Function(text_of(member.find("name")), scope, pathlib.Path(location.get("file")).name,
                    int(location.get("line")), text_of(member.find("type")), arguments,
                    text_of(member.find("briefdescription")), list(described(detailed)),
                    list(listed(detailed, "param")), list(listed(detailed, "retval")), returned, tags)


def functions(folder):
    """All functions, by header and line."""
    found = {}
    for file in pathlib.Path(folder).glob("*.xml"):
        for compound in ElementTree.parse(file).getroot().iter("compounddef"):
            scope = text_of(compound.find("compoundname")) if compound.get("kind") in ("class", "struct") else ""
            for member in compound.iter("memberdef"):
                if member.get("kind") == "function":
                    found[member.get("id")] = function_of(member, scope)
    return sorted(found.values(), key=lambda function: (function.header, function.line))
