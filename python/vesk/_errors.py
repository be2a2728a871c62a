"""The exceptions and warnings of the package."""


class Error(Exception):
    """Something could not be done; the text says what and why."""


class UnreadableError(Error):
    """There is no such box, or what has its name is no box."""


class BoxInUseError(Error):
    """Another process, or another recorder of this one, writes to the box."""


class StorageError(Error):
    """The disk did not take or give something. Writing may be tried again."""


class DamageWarning(UserWarning):
    """A box is damaged or incomplete; what can be read of it is returned."""


class RecorderWarning(UserWarning):
    """A recorder has done something that its user should know, such as a recovery."""
