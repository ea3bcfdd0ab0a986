"""What only hosts on Linux meet: links in the place of logs."""

from pathlib import Path


def test_log_that_is_a_link_is_left_alone(host, practice, tmp_path):
    """Neither emptied, written to nor made; the calls work as without a log."""
    victim, nobody = tmp_path / 'victim', tmp_path / 'nobody'
    victim.write_text('precious')
    practice.write('Trace.Log', '')
    log = Path(practice.find('Trace.Log'))
    for target in victim, nobody:
        log.unlink()
        log.symlink_to(target)
        assert host.init(practice, 1) == 0 and host.add(1, {'LAST': 'Untraced'})[0] == 0 and host.shutdown() == 0
    assert victim.read_text() == 'precious' and not nobody.exists()
