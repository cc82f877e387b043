"""qmx.Project: project files opened, edited and saved all or nothing."""
import pytest

import qmx


def test_saved_on_exit_and_read_back(project_path):
    with qmx.Project(project_path) as project:
        project.track.add({"time": 3.0, "x": 4.0}, kind=qmx.Kind.SMOOTH)
        project.track.set_kind(0, qmx.Kind.CONSTANT, "x")
    with qmx.Project(project_path, read_only=True) as project:
        assert [k.x for k in project.track] == [0.0, 10.0, 0.0, 4.0]
        assert project.track.kinds(3) == (qmx.Kind.SMOOTH,) * 6
        x = project.keys()["x"]
        assert [k.kind for k in x] == [qmx.Kind.CONSTANT, qmx.Kind.LINEAR, qmx.Kind.LINEAR, qmx.Kind.SMOOTH]
        assert project.track.value("x", 0.5) == 0.0   # held by the constant key
    assert qmx.check(project_path) == []


@pytest.mark.parametrize("edit", [
    lambda track: track.add(qmx.Params(time=5.0)),
    lambda track: track.set_kind(1, qmx.Kind.FLAT),
    lambda track: track.clear(),
])
def test_an_exception_leaves_the_file(project_path, edit):
    data = project_path.read_bytes()
    with pytest.raises(KeyError):
        with qmx.Project(project_path) as project:
            edit(project.track)
            assert project.modified
            raise KeyError("changed my mind")
    assert project.closed and project_path.read_bytes() == data


def test_a_new_project_is_not_created_on_an_exception(tmp_path):
    path = tmp_path / "new.qmxbag"
    with pytest.raises(KeyError):
        with qmx.Project(path, create=True) as project:
            project.track.add(qmx.Params(time=0.0))
            raise KeyError("changed my mind")
    assert not path.exists()


def test_reading_without_edits_leaves_the_file(project_path):
    before = project_path.stat()
    with qmx.Project(project_path) as project:
        project.track.sample([0.5, 1.5])
    after = project_path.stat()
    assert (after.st_ino, after.st_mtime_ns) == (before.st_ino, before.st_mtime_ns)


@pytest.mark.parametrize("make, error", [
    (lambda path: qmx.Project(path, create=True), FileExistsError),
    (lambda path: qmx.Project(path.with_name("missing.qmxbag")), FileNotFoundError),
    (lambda path: qmx.Project(path, wait=0), qmx.ProjectError),   # another editor holds the lock
])
def test_open_refused(project_path, make, error):
    with qmx.Project(project_path) as holder:
        data = project_path.read_bytes()
        with pytest.raises(error):
            make(project_path)
        assert len(holder.track) == 3
    assert project_path.read_bytes() == data


@pytest.mark.parametrize("damage", [
    lambda text: text[:-20],
    lambda text: text.replace('"int": 1', '"int": 2', 1),
    lambda text: text.replace("[1.0,10.0,1,", "[1.0,10.0,9,"),
])
def test_damaged_files_refused(project_path, damage):
    project_path.write_text(damage(project_path.read_text()))
    data = project_path.read_bytes()
    with pytest.raises(qmx.ProjectError):
        qmx.Project(project_path)
    assert qmx.check(project_path) != []
    assert project_path.read_bytes() == data


def test_read_only_and_closed_projects_refuse_edits(project_path):
    project = qmx.Project(project_path, read_only=True)
    with pytest.raises(qmx.Error):
        project.track.delete(0)
    with pytest.raises(qmx.ProjectError):
        project.save()
    track = project.track
    project.close()
    with pytest.raises(qmx.Error):
        len(track)


def test_an_edit_that_would_not_read_back_is_taken_back(project_path):
    with qmx.Project(project_path) as project:
        with pytest.raises(qmx.EditRefused, match="overflows"):
            project.track.add({"time": 1.0 + 2 ** -40, "x": 1e300})
        assert (len(project.track), project.modified) == (3, False)
