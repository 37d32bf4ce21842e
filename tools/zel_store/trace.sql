-- lines holds the library's lines in their order: what each is, and in its body what that is about. When one has no
-- thread, none is believed.
UPDATE lines SET thread = '' WHERE (SELECT min(thread) FROM lines) = '';
-- A call ends with its End line, or with its last line before the next call of the same operation: a rejection writes
-- no End. One that writes nothing more is still going on where its thread's lines stop.
CREATE TABLE calls (n INTEGER PRIMARY KEY, thread, function, is_executor, time, last INTEGER, us);
INSERT INTO calls
    SELECT n, thread, function, is_executor, time, iif(is_over, last, thread_last) AS last,
           iif(thread <> '', iif(is_over, ended, thread_ended) - time, 0) AS us
    FROM (SELECT min(n) AS n, thread, function, is_executor, min(time) AS time, max(n) AS last, max(time) AS ended,
                 count(*) > 1 OR call < calls AS is_over, thread_last, thread_ended FROM
          (SELECT *, sum(what = 'BEGIN') OVER (PARTITION BY thread, function ORDER BY n) AS call,
                  sum(what = 'BEGIN') OVER (PARTITION BY thread, function) AS calls,
                  max(n) OVER (PARTITION BY thread) AS thread_last, max(time) OVER (PARTITION BY thread) AS thread_ended
           FROM lines) WHERE call > 0 GROUP BY thread, function, call);
CREATE INDEX calls_by_thread ON calls (thread, n);
-- A step is a statement and what comes of it: refusals, complaints of operations, and a broken read, which gives the
-- reason of the complaint in front of it.
CREATE TABLE steps AS
    SELECT *, max(body) FILTER (WHERE what = 'query') OVER (PARTITION BY thread, step) AS query,
           max(code) FILTER (WHERE what = 'failed to execute') OVER (PARTITION BY thread, step) AS refused,
           count(*) FILTER (WHERE what = 'failed to execute') OVER (PARTITION BY thread, step) AS attempts,
           max(code) FILTER (WHERE what = 'finalize') OVER (PARTITION BY thread, step, function) AS broken,
           count(*) FILTER (WHERE what = 'Critical') OVER (PARTITION BY thread, step, function) AS complaints
    FROM (SELECT lines.*, sum(what IN ('END', 'query') OR (what = 'BEGIN' AND NOT is_executor)) OVER before AS step,
                 coalesce(sum((what = 'BEGIN') - coalesce(ends, 0)) OVER (before ROWS BETWEEN UNBOUNDED PRECEDING
                                                                          AND 1 PRECEDING), 0) AS depth
          FROM lines LEFT JOIN (SELECT last AS n, count(*) AS ends FROM calls GROUP BY last) USING (n)
          WINDOW before AS (PARTITION BY thread ORDER BY n));
CREATE VIEW failures AS
    SELECT operation, text, count(*) AS count, min(number) AS first_line, statement, code, attempts
    FROM (SELECT function AS operation, iif(what = 'Critical', body, 'a read broke off') AS text, number, attempts,
                 iif(broken OR refused, query, '') AS statement, coalesce(broken, refused, 0) AS code FROM steps
          WHERE what = 'Critical' AND NOT is_executor OR what = 'finalize' AND NOT complaints)
    WHERE code OR text NOT IN ('Fail:Filesize is zero', 'req_queue->item_list is NULL', 'waitCallback() TIME-OUT')
    AND text NOT LIKE 'No records%' AND text NOT LIKE 'already%' GROUP BY operation, text, code ORDER BY first_line;
CREATE VIEW operations AS
    SELECT operation, sum(calls) AS calls, sum(failures) AS failures, sum(statements) AS statements,
           sum(us) AS total_us, max(us) AS longest_us
    FROM (SELECT function AS operation, 1 AS calls, 0 AS failures, 0 AS statements, us FROM calls
          UNION ALL SELECT operation, 0, count, 0, 0 FROM failures
          UNION ALL SELECT coalesce((SELECT function FROM calls AS c WHERE c.thread = s.thread AND c.n < s.n AND
                                     c.last >= s.n AND NOT c.is_executor ORDER BY c.n DESC LIMIT 1), function),
                           0, 0, 1, 0
          FROM lines AS s WHERE what = 'query')
    GROUP BY operation ORDER BY total_us DESC, calls DESC, operation;
CREATE VIEW totals AS
    SELECT count(*) AS lines, min(thread) <> '' AS has_threads, count(time) = count(*) AS has_times,
           count(DISTINCT thread) AS threads, max(time) - min(time) AS us FROM lines;
CREATE VIEW summary AS
    SELECT format('%d lines of the library, threads: %s, seconds: %s; kinds of failure: %d', lines,
                  iif(has_threads, threads, '?'), iif(has_times, format('%.3f', us / 1e6), '?'),
                  (SELECT count(*) FROM failures)) AS line, 0 AS style, '' AS detail FROM totals
    UNION ALL SELECT '  calls failures statements  total ms  longest  operation', 1, NULL
    UNION ALL SELECT replace(format('%7d %8d %10d %9.2f %8.2f  %s', calls, failures, statements, total_us / 1e3,
                                    longest_us / 1e3, operation), iif(has_threads, '', '     0.00     0.00'),
                             '        ?        ?'), iif(failures, 31, 0), NULL
    FROM operations JOIN totals WHERE failures OR operation NOT GLOB '__*';
CREATE VIEW tree AS
    SELECT line, style, NULL AS detail FROM
        (SELECT DISTINCT thread, 0 AS n, 'thread ' || thread AS line, 1 AS style FROM lines
         UNION ALL SELECT thread, n, format('%*s', 2 * depth + 2, '') ||
             iif(what = 'BEGIN', function || coalesce(format('  %.2f ms', us / 1000.0), ''),
                 coalesce(nullif(code, 0) || ' ', '') || body), iif(what IN ('BEGIN', 'query'), 0, 31)
         FROM (SELECT steps.*, us FROM steps LEFT JOIN calls USING (n)) WHERE what NOT IN ('END', ''))
    ORDER BY thread, n;
-- Calls are complete, statements and failures instants of a thread, which have no duration.
CREATE VIEW events AS
    SELECT name, ph, time - (SELECT min(time) FROM lines) AS ts, 1 AS pid, CAST(thread AS INTEGER) AS tid, dur, 't' AS s
    FROM (SELECT function AS name, 'X' AS ph, time, thread, us AS dur FROM calls
          UNION ALL SELECT body, 'i', time, thread, 0 FROM lines WHERE what NOT IN ('BEGIN', 'END', ''));
