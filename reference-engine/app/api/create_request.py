"""Reading a job creation request: a multipart upload ("stems", "file") or JSON ("url", "stems")."""

from __future__ import annotations

import json
import urllib.parse
from dataclasses import dataclass
from typing import Any, List, Optional

from fastapi import Request
from starlette.datastructures import UploadFile

from ..kinds import SEPARABLE_STEMS
from .errors import RequestInvalid, invalid

_EXPECTED_BODY = ("corps attendu : formulaire multipart (file, stems) "
                  "ou JSON {\"url\": …, \"stems\": […]}")


@dataclass
class CreateRequest:
    stems: List[str]
    url: Optional[str] = None
    upload: Optional[UploadFile] = None


def parse_stems(raw: Any, errors: list) -> List[str]:
    """The stem list: a JSON array (or its text) of separable stem names; all six when absent."""
    loc = ("body", "stems")
    if raw is None:
        return list(SEPARABLE_STEMS)
    if isinstance(raw, str):
        try:
            raw = json.loads(raw)
        except ValueError:
            errors.append(invalid(loc, "stems doit être un tableau JSON, par exemple "
                                       "[\"vocals\",\"drums\"]", "value_error.jsondecode"))
            return []
    if not isinstance(raw, list) or not all(isinstance(item, str) for item in raw):
        errors.append(invalid(loc, "stems doit être une liste de noms de pistes", "type_error.list"))
        return []
    unknown = [item for item in raw if item not in SEPARABLE_STEMS]
    if unknown:
        errors.append(invalid(loc, f"piste inconnue : {', '.join(unknown)} (valeurs possibles : "
                                   f"{', '.join(SEPARABLE_STEMS)})"))
        return []
    if not raw:
        errors.append(invalid(loc, "au moins une piste doit être demandée"))
        return []
    return list(dict.fromkeys(raw))


def parse_url(raw: Any, errors: list) -> Optional[str]:
    loc = ("body", "url")
    if raw is None:
        errors.append(invalid(loc, "champ requis", "value_error.missing"))
        return None
    if not isinstance(raw, str):
        errors.append(invalid(loc, "l'adresse doit être un texte", "type_error.str"))
        return None
    url = raw.strip()
    parsed = urllib.parse.urlparse(url)
    if parsed.scheme.lower() not in ("http", "https") or not parsed.netloc:
        errors.append(invalid(loc, "adresse http(s) attendue", "value_error.url.scheme"))
        return None
    return url


async def _from_form(request: Request) -> CreateRequest:
    try:
        form = await request.form()
    except Exception as error:  # noqa: BLE001 - any parser failure is the client's
        raise RequestInvalid([invalid(("body",), f"formulaire multipart illisible : {error}")])
    errors: list = []
    upload = form.get("file")
    if not isinstance(upload, UploadFile):
        errors.append(invalid(("body", "file"), "champ requis : le fichier audio",
                              "value_error.missing"))
    stems_field = form.get("stems")
    if isinstance(stems_field, UploadFile):
        stems_field = (await stems_field.read()).decode("utf-8", "replace")
    stems = parse_stems(stems_field, errors)
    if errors:
        raise RequestInvalid(errors)
    return CreateRequest(stems=stems, upload=upload)


async def _from_json(request: Request) -> CreateRequest:
    try:
        body = json.loads(await request.body())
    except ValueError:
        raise RequestInvalid([invalid(("body",), "JSON invalide", "value_error.jsondecode")])
    if not isinstance(body, dict):
        raise RequestInvalid([invalid(("body",), "objet JSON attendu", "type_error.dict")])
    errors: list = []
    url = parse_url(body.get("url"), errors)
    stems = parse_stems(body.get("stems"), errors)
    if errors:
        raise RequestInvalid(errors)
    return CreateRequest(stems=stems, url=url)


async def read_create_request(request: Request) -> CreateRequest:
    media = request.headers.get("content-type", "").split(";")[0].strip().lower()
    if media == "multipart/form-data":
        return await _from_form(request)
    if media == "application/json" or media.endswith("+json"):
        return await _from_json(request)
    raise RequestInvalid([invalid(("body",), _EXPECTED_BODY)])
