"""The Python package with the real device library and a key store; openssl verifies."""

from __future__ import annotations

import ctypes
import gc
import os
import pathlib
import shutil
import subprocess
from typing import Callable, Iterator

import pytest

import vctk

PIN = "12345678"
PROJECT = pathlib.Path(os.environ["PROJECT"])
CONTENT = "合同\0\r\n".encode() + bytes(range(256))
DISTID = "distid:1234567812345678"


def openssl(*arguments: object) -> bytes:
    command: list[str] = ["openssl", *map(str, arguments)]
    return subprocess.run(command, check=True, capture_output=True).stdout


class Identity:
    def __init__(self, folder: pathlib.Path, stem: str, name: str, *key: str) -> None:
        self.folder, self.name = folder, name
        self.certificate, self.pkcs12 = folder / f"{stem}.pem", folder / f"{stem}.p12"
        sm2 = stem == "sm2"
        parts = [folder / f"{stem}.key", folder / f"{stem}.csr", folder / "ca.pem"]
        openssl("genpkey", *key, "-out", parts[0])
        signed = ["-sm3", "-sigopt", DISTID] if sm2 else []
        subject = ["-utf8", "-subj", f"/C=CN/CN={name}"]
        openssl("req", "-new", "-key", parts[0], *subject, *signed, "-out", parts[1])
        authority = ["-CA", parts[2], "-CAkey", folder / "ca.key", "-CAcreateserial"]
        extra = ["-vfyopt", DISTID] if sm2 else []
        openssl("x509", "-req", "-in", parts[1], *authority, "-days", 30, *extra,
                "-out", self.certificate)  # fmt: skip
        openssl("pkcs12", "-export", "-in", self.certificate, "-inkey", parts[0],
                "-certpbe", "NONE", "-passout", f"pass:{PIN}", "-out", self.pkcs12)  # fmt: skip
        self.serial = self.ask("-serial").split("=")[1].strip()

    def ask(self, what: str) -> str:
        return openssl("x509", "-in", self.certificate, "-noout", what).decode()

    def expect_signed(self, kind: str, signature: bytes) -> None:
        """By scripts/verify.sh, with the certificate and its chain."""
        (self.folder / "signature").write_bytes(signature)
        (self.folder / "content").write_bytes(CONTENT)
        names = [self.folder / "signature", self.folder / "content", self.certificate]
        script = str(PROJECT / "scripts/verify.sh")
        subprocess.run([script, kind, *names, self.folder / "ca.pem"], check=True)


@pytest.fixture(scope="session")
def identities(tmp_path_factory: pytest.TempPathFactory) -> tuple[Identity, Identity]:
    folder = tmp_path_factory.mktemp("identities")
    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", 30, "-subj", "/CN=root",
            "-keyout", folder / "ca.key", "-out", folder / "ca.pem")  # fmt: skip
    rsa = Identity(folder, "rsa", "张三", "-algorithm", "RSA")
    return rsa, Identity(folder, "sm2", "李四", "-algorithm", "SM2")


@pytest.fixture
def keystore(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> pathlib.Path:
    tmp_path.chmod(0o700)
    monkeypatch.setenv("VEL_KEYSTORE", str(tmp_path))
    return tmp_path


@pytest.fixture
def rsa(identities: tuple[Identity, Identity], keystore: pathlib.Path) -> Identity:
    shutil.copy(identities[0].pkcs12, keystore)
    return identities[0]


@pytest.fixture
def sm2(identities: tuple[Identity, Identity], keystore: pathlib.Path) -> Identity:
    shutil.copy(identities[1].pkcs12, keystore)
    return identities[1]


@pytest.fixture
def session(keystore: pathlib.Path) -> Iterator[vctk.Session]:
    with vctk.Session(vctk.FILES) as made:
        yield made


def test_lists_names_and_serial_numbers(
    rsa: Identity, sm2: Identity, session: vctk.Session
) -> None:
    listed = {one.serial: one.subject for one in session.certificates()}
    assert set(listed) == {rsa.serial, sm2.serial}
    assert rsa.name in listed[rsa.serial] and sm2.name in listed[sm2.serial]


def test_an_empty_key_store_lists_nothing(session: vctk.Session) -> None:
    assert session.certificates() == []


def test_filters_narrow_the_list(rsa: Identity, sm2: Identity, session: vctk.Session) -> None:
    session.add_filter(vctk.Filter.COMMON_NAME, sm2.name)
    assert [one.serial for one in session.certificates()] == [sm2.serial]
    assert session.exists(rsa.serial)
    assert not session.exists("0123")
    session.clear_filters()
    assert len(session.certificates()) == 2
    with pytest.raises(vctk.Error) as caught:
        session.add_filter(vctk.Filter.SUBJECT, "")
    assert caught.value.code == 0xE0000003


@pytest.mark.parametrize("name", ["rsa", "sm2"])
def test_signatures_are_verified_by_openssl(
    name: str, session: vctk.Session, request: pytest.FixtureRequest
) -> None:
    identity = request.getfixturevalue(name)
    session.choose(identity.serial)
    assert session.key_type() == name.upper()
    assert session.digest() == {"rsa": "SHA256", "sm2": "SM3"}[name]
    der = openssl("x509", "-in", identity.certificate, "-outform", "DER")
    assert session.certificate() == der
    identity.expect_signed("p7", session.sign_pkcs7(CONTENT, PIN))
    identity.expect_signed("detached", session.sign_pkcs7(CONTENT, PIN, detached=True))
    identity.expect_signed("p1", session.sign_pkcs1(CONTENT, identity.serial, PIN))


def test_the_digest_that_is_set_counts(rsa: Identity, session: vctk.Session) -> None:
    session.set_digest("sha512")
    session.choose(rsa.serial)
    structure = session.sign_pkcs7(CONTENT, PIN)
    sha512 = bytes.fromhex("0609608648016503040203")
    assert sha512 in structure
    rsa.expect_signed("p7", structure)
    with pytest.raises(vctk.Error) as caught:
        session.set_digest("nonsense")
    assert caught.value.code == 0xE0000066


def test_a_wrong_pin_tells_code_and_text(rsa: Identity, session: vctk.Session) -> None:
    session.choose(rsa.serial)
    with pytest.raises(vctk.Error) as caught:
        session.sign_pkcs7(CONTENT, "87654321")
    assert caught.value.code == 0xE0000056
    assert caught.value.function == "VCTK_P7SignStrEx"
    assert caught.value.text == "您输入的PIN码错误，请重新输入,您还有9次机会"
    assert str(caught.value) == f"VCTK_P7SignStrEx: 0xE0000056 {caught.value.text}"
    rsa.expect_signed("p7", session.sign_pkcs7(CONTENT, PIN))


def test_a_bare_signature_with_a_wrong_pin_fails(rsa: Identity, session: vctk.Session) -> None:
    with pytest.raises(vctk.Error) as caught:
        session.sign_pkcs1(CONTENT, rsa.serial, "87654321")
    assert caught.value.code == 0xE0000056
    assert caught.value.tries_left is None


def test_nobody_signs_with_another_certificate(
    rsa: Identity, sm2: Identity, session: vctk.Session
) -> None:
    session.choose(rsa.serial)
    session.choose(rsa.serial)
    with pytest.raises(ValueError):
        session.choose(sm2.serial)
    rsa.expect_signed("p7", session.sign_pkcs7(CONTENT, PIN))


def test_a_serial_number_that_nobody_has(rsa: Identity, session: vctk.Session) -> None:
    with pytest.raises(vctk.Error) as caught:
        session.choose("0123")
    assert caught.value.code == 0xE0000061 and caught.value.text
    session.choose(rsa.serial)


def test_nothing_chosen(rsa: Identity, session: vctk.Session) -> None:
    with pytest.raises(vctk.Error) as caught:
        session.certificate()
    assert caught.value.code == 0xE0000001
    with pytest.raises(vctk.Error) as caught:
        session.sign_pkcs7(CONTENT, PIN)
    assert caught.value.code == 0xE0000078


def test_empty_contents_are_refused(rsa: Identity, session: vctk.Session) -> None:
    session.choose(rsa.serial)
    with pytest.raises(vctk.Error):
        session.sign_pkcs7(b"", PIN)
    with pytest.raises(vctk.Error):
        session.sign_pkcs1(b"", rsa.serial, PIN)


def test_without_a_certificate_no_dialog_is_shown(session: vctk.Session) -> None:
    with pytest.raises(vctk.Error) as caught:
        session.sign_pkcs1_by_dialog(CONTENT)
    assert caught.value.code == 0xE0000061


def test_the_pin_is_changed(rsa: Identity, session: vctk.Session) -> None:
    session.choose(rsa.serial)
    session.change_pin("", PIN, "新的PIN码")
    with pytest.raises(vctk.Error) as caught:
        session.change_pin(rsa.serial, PIN, "another1")
    assert (caught.value.code, caught.value.text) == (0xE0000056, "")
    rsa.expect_signed("p7", session.sign_pkcs7(CONTENT, "新的PIN码"))


def test_half_a_pin_is_never_tried(rsa: Identity, session: vctk.Session) -> None:
    session.choose(rsa.serial)
    with pytest.raises(ValueError):
        session.sign_pkcs7(CONTENT, PIN + "\0")
    with pytest.raises(ValueError):
        session.change_pin("", "1234\0", "12345678")


def test_a_closed_session_says_so(session: vctk.Session) -> None:
    session.close()
    session.close()
    calls: list[Callable[[], object]] = [
        session.certificates,
        lambda: session.choose("1"),
        lambda: session.sign_pkcs1(CONTENT, "1", PIN),
        lambda: session.change_pin("", "1", "2"),
    ]
    for call in calls:
        with pytest.raises(vctk.Error) as caught:
            call()
        assert (caught.value.code, caught.value.text) == (0xFFFFFFFF, "")


@pytest.mark.parametrize("key_list", ["", "no XML", "<authinfo></authinfo>"])
def test_what_is_no_key_list_begins_no_session(key_list: str) -> None:
    with pytest.raises(vctk.Error) as caught:
        vctk.Session(key_list)
    assert caught.value.code == 0xFFFFFFFF


def test_sessions_that_are_forgotten_are_ended(keystore: pathlib.Path) -> None:
    for _ in range(3):
        vctk.Session(vctk.FILES)
    gc.collect()
    assert vctk.Session(vctk.FILES).certificates() == []


def test_every_function_takes_what_the_header_says() -> None:
    header = (PROJECT / "CryptoService/VELClientTKDll/vctk.h").read_text()
    kinds: dict[type, str] = {vctk._TEXT: "char*", vctk._INT: "int "}
    kinds[ctypes.c_ulong] = "unsigned long"
    for name, arguments in vctk._FUNCTIONS.items():
        start = header.index(f"int {name}(HANDLE handle") + len(f"int {name}(HANDLE handle")
        declared = header[start : header.index(");", start)].split(",")[1:]
        assert len(declared) == len(arguments), name
        for text, kind in zip(declared, arguments):
            assert kinds.get(kind, "int*") in text, (name, text)


def test_the_version_is_the_projects() -> None:
    text = (PROJECT / "examples/python/pyproject.toml").read_text()
    assert f'version = "{os.environ["PROJECT_VERSION"]}"' in text
