"""How a test of a whole program ends: by what it requires, or skipped where something is missing that
it wants.
"""

# ctest takes this exit code for skipped.
SKIPPED = 77


class Failure(Exception):
    pass


class Skip(Exception):
    pass


def require(condition, text):
    if not condition:
        raise Failure(text)


def verdict(check, name=""):
    """Runs check() and returns the exit code of the test; says why where it is not 0."""
    try:
        check()
    except Skip as reason:
        print(f"skipped: {reason}")
        return SKIPPED
    except Failure as reason:
        print(f"{name}: {reason}" if name else reason)
        return 1
    return 0
