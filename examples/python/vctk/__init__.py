"""The signing toolkit for Python: sessions, certificates, PKCS#1 and PKCS#7 signatures.

    with vctk.Session(vctk.FILES) as session:
        for certificate in session.certificates():
            print(certificate.subject, certificate.serial)
        session.choose(serial)
        structure = session.sign_pkcs7(b"I agree.", pin)

Contents, signatures and certificates are bytes (DER where that applies), texts are str. A failure
is an Error with the toolkit's code and Chinese text. One thread at a time for one session.

The first session of the process sees to a UTF-8 locale: where the environment has another one it
sets LC_ALL to C.UTF-8, because the toolkit reads the environment again. Make it before other
threads run.
"""

from __future__ import annotations

import base64
import ctypes
import enum
import functools
import json
import locale
import os
from types import TracebackType
from typing import Any, NamedTuple, Optional

__all__ = ["FILES", "Certificate", "Error", "Filter", "PinOf", "Session"]

#: A key list with the device library's own kind of key, the key store.
FILES = (
    '<authinfo><liblist><lib type="CSP"><algid val="SHA256" sm2_hashalg="SM3"/></lib>'
    "</liblist></authinfo>"
)

_NO_SESSION = 0xFFFFFFFF
_NOTHING_LISTED = 0xE000000E
# Control characters that stand in no name.
_BETWEEN_CERTIFICATES = "\x1e"
_BETWEEN_FIELDS = "\x1f"


class Error(Exception):
    """A failure: `code` is a VCTK_ERROR, a device's code such as 0xE0000056, or 0xFFFFFFFF for a
    session that never began or is closed. `text` is empty where the toolkit keeps none: for such a
    session and for failures of change_pin. `tries_left` is set by sign_pkcs1 where it is known."""

    def __init__(
        self, function: str, code: int, text: str = "", tries_left: Optional[int] = None
    ) -> None:
        shown = str(code) if code < 0x10000 else f"0x{code:08X}"
        super().__init__(f"{function}: {shown} {text}".rstrip())
        self.function = function
        self.code = code
        self.text = text
        self.tries_left = tries_left


class Certificate(NamedTuple):
    subject: str
    serial: str


class Filter(enum.IntEnum):
    """The types of filters, by the numbers of VCTK_AddFilter."""

    ISSUER = 0
    SERIAL = 1
    SUBJECT = 2
    EMAIL = 3
    CERTIFICATE = 4
    KEY_SPEC = 5
    KEY_STATUS = 6
    LIBRARY = 7
    VALIDITY = 8
    KEY_USAGE = 9
    INTERFACE = 10
    COMMON_NAME = 11
    SIGNING_AND_ENCRYPTION = 12


class PinOf(enum.IntEnum):
    ADMINISTRATOR = 1
    USER = 2


_HANDLE = ctypes.c_void_p
_TEXT = ctypes.c_char_p
_INT = ctypes.c_int
_OUT = (ctypes.c_char_p, ctypes.POINTER(ctypes.c_int))

# What each function takes behind the handle; all but VCTK_Initialize give an int.
_FUNCTIONS: dict[str, tuple[type, ...]] = {
    "VCTK_Finalize": (),
    "VCTK_GetLastError": (),
    "VCTK_GetLastErrorMessage": _OUT,
    "VCTK_AddFilter": (ctypes.c_ulong, _TEXT),
    "VCTK_ClearFilter": (),
    "VCTK_GetCertList": (_TEXT, _TEXT, *_OUT),
    "VCTK_CheckCertIsExist": (_TEXT, ctypes.POINTER(_INT)),
    "VCTK_SetCert": (_TEXT,),
    "VCTK_GetSignCert": _OUT,
    "VCTK_GetSignCertType": _OUT,
    "VCTK_SetDigestAlg": (_TEXT,),
    "VCTK_GetDigestAlg": _OUT,
    "VCTK_SetPinCode": (_TEXT,),
    "VCTK_P7SignStrEx": (_TEXT, _INT, _INT, _INT),
    "VCTK_P7Sign": (_TEXT, _INT, _INT, _INT),
    "VCTK_GetP7SignResult": _OUT,
    "VCTK_P1Sign": (_TEXT, _INT),
    "VCTK_GetP1SignResult": _OUT,
    "VCTK_P1SignWithPin": (_TEXT, _TEXT, _TEXT, _INT),
    "VCTK_GetP1SignResultWithPin": _OUT,
    "VCTK_ChangePinCode": (_TEXT, _INT, _TEXT, _TEXT),
}


@functools.lru_cache(maxsize=None)
def _toolkit() -> ctypes.CDLL:
    library = ctypes.CDLL("libVELClientTK64.so")
    library.VCTK_Initialize.argtypes = (_TEXT,)
    library.VCTK_Initialize.restype = _HANDLE
    for name, arguments in _FUNCTIONS.items():
        function = getattr(library, name)
        function.argtypes = (_HANDLE, *arguments)
        function.restype = _INT
    if not _locale_is_utf8():
        os.environ["LC_ALL"] = "C.UTF-8"
        _locale_is_utf8()
    return library


def _locale_is_utf8() -> bool:
    try:
        locale.setlocale(locale.LC_ALL, "")
    except locale.Error:
        return False
    return locale.nl_langinfo(locale.CODESET) == "UTF-8"


def _plain(text: str) -> bytes:
    """A text that ends earlier than its string would be another: half a PIN costs a try."""
    if "\0" in text:
        raise ValueError("a zero character in a text")
    return text.encode()


class Session:
    """One session of the toolkit; ends with close() or the `with` statement."""

    def __init__(self, key_list: str) -> None:
        """Raises OSError without the toolkit's library, Error 0xFFFFFFFF when the key list is none
        or the device library cannot be loaded."""
        self._handle: Optional[int] = None
        self._chosen = ""
        self._library = _toolkit()
        self._handle = self._library.VCTK_Initialize(_plain(key_list))
        if self._handle is None:
            raise Error("VCTK_Initialize", _NO_SESSION)

    def close(self) -> None:
        """Ends the session; what is called later raises Error 0xFFFFFFFF."""
        handle, self._handle = self._handle, None
        if handle is not None:
            self._library.VCTK_Finalize(handle)

    def __enter__(self) -> Session:
        return self

    def __exit__(
        self,
        kind: Optional[type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()

    def certificates(self) -> list[Certificate]:
        """The certificates that can sign now and pass the filters."""
        separators = (_BETWEEN_CERTIFICATES.encode(), _BETWEEN_FIELDS.encode())
        try:
            text = self._get("VCTK_GetCertList", *separators)
        except Error as error:
            if error.code == _NOTHING_LISTED:
                return []
            raise
        return [
            Certificate(*item.split(_BETWEEN_FIELDS, 1))
            for item in text.split(_BETWEEN_CERTIFICATES)
        ]

    def exists(self, serial: str) -> bool:
        """Whether any certificate, able to sign or not, has the number; filters do not count."""
        found = ctypes.c_int()
        self._call("VCTK_CheckCertIsExist", _plain(serial), ctypes.byref(found))
        return found.value != 0

    def add_filter(self, kind: Filter, value: str) -> None:
        """Issuers are alternatives; other filters must all be passed."""
        self._call("VCTK_AddFilter", kind, _plain(value))

    def clear_filters(self) -> None:
        self._call("VCTK_ClearFilter")

    def choose(self, serial: str) -> None:
        """Chooses the certificate for sign_pkcs7, certificate and key_type. The toolkit signs with
        the first one that was chosen, whatever is chosen later: another one is a ValueError."""
        if self._chosen not in ("", serial):
            raise ValueError(f"the session signs with {self._chosen}, not with {serial}")
        self._call("VCTK_SetCert", _plain(serial), success=1)
        self._chosen = serial

    def certificate(self) -> bytes:
        """The chosen certificate in DER."""
        return base64.b64decode(self._get("VCTK_GetSignCert"))

    def key_type(self) -> str:
        """The chosen certificate's: "RSA" or "SM2"."""
        return self._get("VCTK_GetSignCertType")

    def set_digest(self, name: str) -> None:
        """MD2, MD5, SHA1, SHA256, SHA512 or SM3, for all signatures but those of sign_pkcs1."""
        self._call("VCTK_SetDigestAlg", _plain(name))

    def digest(self) -> str:
        """The digest that was set, else the chosen certificate's."""
        return self._get("VCTK_GetDigestAlg")

    def sign_pkcs7(self, content: bytes, pin: str, detached: bool = False) -> bytes:
        """PKCS#7 with the chosen certificate, which is put into the structure."""
        self._call("VCTK_SetPinCode", _plain(pin), success=1)
        self._call("VCTK_P7SignStrEx", base64.b64encode(content), 1, int(detached), 1)
        return base64.b64decode(self._get("VCTK_GetP7SignResult"))

    def sign_pkcs7_by_dialog(self, content: bytes, detached: bool = False) -> bytes:
        """The user chooses in the device library's dialog, which asks for the PIN, too."""
        self._call("VCTK_P7Sign", base64.b64encode(content), 1, int(detached), 1)
        self._chosen = self._chosen or "the certificate of the dialog"
        return base64.b64decode(self._get("VCTK_GetP7SignResult"))

    def sign_pkcs1_by_dialog(self, content: bytes) -> bytes:
        """The user chooses in the device library's dialog, which asks for the PIN, too."""
        self._call("VCTK_P1Sign", base64.b64encode(content), 1)
        self._chosen = self._chosen or "the certificate of the dialog"
        return base64.b64decode(self._get("VCTK_GetP1SignResult"))

    def sign_pkcs1(self, content: bytes, serial: str, pin: str) -> bytes:
        """A bare signature with any certificate: SHA1 for an RSA key, SM3 for any other."""
        arguments = (_plain(serial), _plain(pin), base64.b64encode(content), 1)
        try:
            self._call("VCTK_P1SignWithPin", *arguments)
        except Error as error:
            if error.code != _NO_SESSION:
                tries = self._pkcs1_answer().get("remainretrycount", -1)
                error.tries_left = None if tries == -1 else tries
            raise
        return base64.b64decode(self._pkcs1_answer().get("signdata", ""))

    def change_pin(
        self, serial: str, current: str, replacement: str, whose: PinOf = PinOf.USER
    ) -> None:
        """An empty serial number means the chosen certificate's key."""
        arguments = (_plain(serial), whose, _plain(current), _plain(replacement))
        code: int = self._library.VCTK_ChangePinCode(self._handle, *arguments)
        # This code is not kept by the toolkit: it would answer with the text of an earlier one.
        if code != 0:
            raise Error("VCTK_ChangePinCode", code & 0xFFFFFFFF)

    def _pkcs1_answer(self) -> dict[str, Any]:
        """Empty when there is none."""
        try:
            answer: dict[str, Any] = json.loads(self._get("VCTK_GetP1SignResultWithPin"))
        except Error:
            return {}
        return answer

    def _call(self, function: str, *arguments: object, success: int = 0) -> None:
        if self._handle is None:
            raise Error(function, _NO_SESSION)
        code = getattr(self._library, function)(self._handle, *arguments)
        if code != success:
            raise Error(function, code & 0xFFFFFFFF, self._text_of(code))

    def _get(self, function: str, *arguments: object) -> str:
        """The functions differ in what they leave in the length; the text ends at a zero byte."""
        length = ctypes.c_int()
        self._call(function, *arguments, None, ctypes.byref(length))
        if length.value == 0:
            return ""
        buffer = ctypes.create_string_buffer(length.value)
        self._call(function, *arguments, buffer, ctypes.byref(length))
        return buffer.value.decode(errors="replace")

    def _text_of(self, code: int) -> str:
        """The toolkit tells the text of its last failure only, and copies it unterminated."""
        library, length = self._library, ctypes.c_int()
        if library.VCTK_GetLastError(self._handle) != code:
            return ""
        message = library.VCTK_GetLastErrorMessage
        if message(self._handle, None, ctypes.byref(length)) != 0:
            return ""
        buffer = ctypes.create_string_buffer(length.value + 1)
        length.value = len(buffer)
        if message(self._handle, buffer, ctypes.byref(length)) != 0:
            return ""
        return buffer.value.decode(errors="replace")
