-- raw holds the lines of a trace as they were read: the library's, and behind each without a function what its text
-- goes on with. A body tells what its line is, and what that is about.
CREATE TABLE lines AS
    SELECT row_number() OVER (ORDER BY number) AS n, number, time, function,
           iif((SELECT min(thread) FROM raw) = '', '', thread) AS thread, what,
           function IN ('__insert_callback', '__db_finalize') OR function GLOB '__execute_*' AS is_executor,
           CASE what WHEN 'refusal' THEN CAST(substr(body, instr(body, '], err[') + 7) AS INTEGER)
                     WHEN 'broken read' THEN CAST(substr(body, 21) AS INTEGER) ELSE 0 END AS code,
           CASE what WHEN 'refusal' THEN substr(substr(body, 1, instr(body, '], err[') - 1),
                                                instr(body, 'failed to execute [') + 19)
                     WHEN 'critical' THEN substr(body, 14)
                     WHEN 'statement' THEN rtrim(substr(body, instr(body, '[') + 1), ']') ELSE body END AS body
    FROM (SELECT *, CASE WHEN body LIKE '%failed to execute [%], err[%' THEN 'refusal'
                         WHEN body LIKE '* Critical * %' THEN 'critical'
                         WHEN body GLOB 'sqlite3_finalize = [[][1-9]*' THEN 'broken read'
                         WHEN body LIKE 'query[%]%' OR body LIKE 'query [%]%' THEN 'statement'
                         WHEN body LIKE 'BEGIN >>>>%' THEN 'begin' WHEN body LIKE 'END <<<<%' THEN 'end'
                         ELSE 'other' END AS what
          FROM (SELECT min(number) AS number, max(time) AS time, max(thread) AS thread, max(function) AS function,
                       group_concat(body, char(10)) AS body
                FROM (SELECT *, count(function) OVER (ORDER BY number) AS head FROM raw) GROUP BY head));
CREATE UNIQUE INDEX by_place ON lines (n);
CREATE INDEX by_thread ON lines (thread, n);
CREATE INDEX by_function ON lines (thread, function, n);
-- A call ends with its End line, or with its last line before the next call of the same operation: a rejection writes
-- no End. One that writes nothing more is still going on where its thread's lines stop.
CREATE TABLE calls AS
    SELECT n, thread, function, is_executor, time, iif(last > n OR next, last,
           (SELECT max(n) FROM lines AS l WHERE l.thread = ended.thread)) AS last
    FROM (SELECT *, (SELECT max(n) FROM lines AS l WHERE l.thread = begun.thread AND l.function = begun.function
                     AND l.n < coalesce(next, 1e15)) AS last
          FROM (SELECT *, lead(n) OVER (PARTITION BY thread, function ORDER BY n) AS next
                FROM lines WHERE what = 'begin') AS begun) AS ended;
ALTER TABLE calls ADD COLUMN us;
UPDATE calls SET us = iif(thread <> '', (SELECT time FROM lines WHERE n = last) - time, 0);
CREATE INDEX calls_by_thread ON calls (thread, n);
-- A step is a statement and what comes of it: refusals, complaints of operations, and a broken read, which gives the
-- reason of the complaint in front of it.
CREATE TABLE steps AS
    SELECT lines.*, sum(what IN ('end', 'statement') OR (what = 'begin' AND NOT is_executor)) OVER before AS step,
           coalesce(sum((what = 'begin') - coalesce(ends, 0)) OVER (before ROWS BETWEEN UNBOUNDED PRECEDING
                                                                    AND 1 PRECEDING), 0) AS depth
    FROM lines LEFT JOIN (SELECT last AS n, count(*) AS ends FROM calls GROUP BY last) USING (n)
    WINDOW before AS (PARTITION BY thread ORDER BY n);
CREATE INDEX by_step ON steps (thread, step);
CREATE TABLE complaints AS
    SELECT c.thread, c.step, c.function AS operation, c.body AS text, c.number, coalesce(b.code, r.code, 0) AS code,
           coalesce(attempts, 0) AS attempts, iif(b.code OR r.code, s.body, '') AS statement
    FROM steps AS c
    LEFT JOIN steps AS b ON b.thread = c.thread AND b.step = c.step AND b.function = c.function
              AND b.what = 'broken read'
    LEFT JOIN (SELECT thread, step, max(code) AS code, count(*) AS attempts FROM steps WHERE what = 'refusal'
               GROUP BY thread, step) AS r ON r.thread = c.thread AND r.step = c.step
    LEFT JOIN steps AS s ON s.thread = c.thread AND s.step = c.step AND s.what = 'statement'
    WHERE NOT c.is_executor AND c.what = 'critical'
    UNION ALL SELECT b.thread, b.step, b.function, 'a read broke off', b.number, b.code, 0, s.body
    FROM steps AS b LEFT JOIN steps AS s ON s.thread = b.thread AND s.step = b.step AND s.what = 'statement'
    WHERE b.what = 'broken read' AND NOT EXISTS (SELECT 1 FROM steps AS c WHERE c.thread = b.thread AND c.step = b.step
                                                 AND c.function = b.function AND c.what = 'critical');
CREATE VIEW failures AS
    SELECT operation, text, count(*) AS count, min(number) AS first_line, statement, code, attempts FROM complaints
    WHERE code OR text NOT LIKE 'No records found%' GROUP BY operation, text, code ORDER BY first_line;
CREATE VIEW operations AS
    SELECT operation, sum(calls) AS calls, sum(failures) AS failures, sum(statements) AS statements,
           sum(us) AS total_us, max(us) AS longest_us
    FROM (SELECT function AS operation, 1 AS calls, 0 AS failures, 0 AS statements, us FROM calls
          UNION ALL SELECT operation, 0, count, 0, 0 FROM failures
          UNION ALL SELECT coalesce((SELECT function FROM calls AS c WHERE c.thread = s.thread AND c.n < s.n AND
                                     c.last >= s.n AND NOT c.is_executor ORDER BY c.n DESC LIMIT 1), function),
                           0, 0, 1, 0
          FROM lines AS s WHERE what = 'statement')
    GROUP BY operation ORDER BY total_us DESC, calls DESC, operation;
CREATE VIEW totals AS
    SELECT count(*) AS lines, min(thread) <> '' AS has_threads, min(time) IS NOT NULL AND count(time) = count(*) AS
           has_times, count(DISTINCT thread) AS threads, max(time) - min(time) AS us,
           (SELECT count(DISTINCT thread || ' ' || step) FROM steps AS r WHERE what = 'refusal' AND code = 5
            AND NOT EXISTS (SELECT 1 FROM complaints AS c WHERE c.thread = r.thread AND c.step = r.step)) AS recovered,
           (SELECT count(*) FROM complaints WHERE NOT code AND text LIKE 'No records found%') AS not_found
    FROM lines;
CREATE VIEW tree AS
    SELECT line, style FROM
        (SELECT DISTINCT thread, 0 AS n, 'thread ' || thread AS line, 1 AS style FROM lines
         UNION ALL SELECT thread, n, format('%*s', 2 * depth + 2, '') ||
             iif(what = 'begin', function || coalesce(format('  %.2f ms', us / 1000.0), ''),
                 coalesce(nullif(code, 0) || ' ', '') || body), iif(what IN ('begin', 'statement'), 0, 31)
         FROM (SELECT steps.*, us FROM steps LEFT JOIN calls USING (n)) WHERE what NOT IN ('end', 'other'))
    ORDER BY thread, n;
CREATE VIEW complete_events AS
    SELECT function AS name, 'X' AS ph, time - (SELECT min(time) FROM lines) AS ts, 1 AS pid,
           CAST(thread AS INTEGER) AS tid, us AS dur FROM calls;
CREATE VIEW instant_events AS
    SELECT body AS name, 'i' AS ph, time - (SELECT min(time) FROM lines) AS ts, 1 AS pid,
           CAST(thread AS INTEGER) AS tid, 't' AS s FROM lines WHERE what NOT IN ('begin', 'end', 'other');
