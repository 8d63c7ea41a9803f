"""docs/hosting.md as recipes: the files that a section shows, and the commands that it gives."""

import re


def sections(text):
    """Heading -> (files by name, the commands as one script), for each section with commands."""
    found = {}
    for part in re.split(r"^#{2,3} ", text, flags=re.MULTILINE)[1:]:
        heading, body = part.split("\n", 1)
        files = dict(
            re.findall(r"^<!-- file: (\S+) -->\n```\w+\n(.*?)^```$", body, re.MULTILINE | re.DOTALL)
        )
        blocks = re.findall(r"^```(\w+)\n(.*?)^```$", body, re.MULTILINE | re.DOTALL)
        commands = [block for language, block in blocks if language == "sh"]
        if len(files) + len(commands) != len(blocks):
            raise ValueError(f"a block of section '{heading}' is neither a file nor commands")
        if commands:
            found[heading] = (files, "".join(commands))
    return found
